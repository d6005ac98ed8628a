// The two ways in which the agent replaces itself with another program: a restart, and the script
// of an upgrade. Both first end what requests have started, and nothing new is created until the
// caller allows it.
#pragma once

#include "agent/agent_control.h"
#include "agent/signals.h"
#include "agent/upgrade.h"
#include "base/owners.h"

namespace zot {

// Executes the program that the settings name. `listener` is the socket of the port: it is closed,
// but no other user can take the port while no agent listens. Returns only on failure.
void RestartProgram(AgentServices& services, const StartArguments& arguments, UniqueFd listener);

// Starts the guard and executes the script of the order. `reserve` holds the port. Returns only on
// failure, with the files of the order removed.
void RunUpgrade(AgentServices& services, const StartArguments& arguments, UpgradeOrder& order,
                const UniqueFd& reserve);

}  // namespace zot
