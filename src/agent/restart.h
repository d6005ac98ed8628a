// The two ways in which the agent replaces itself by another program: a restart, and an upgrade by
// its script. What requests have started ends before.
#pragma once

#include "agent/agent_control.h"
#include "agent/signals.h"
#include "agent/upgrade.h"
#include "base/owners.h"

namespace zot {

// Executes the program that the settings name. `listener` is the socket of the port: it is closed,
// but the port stays with the agent's user while no agent listens. Returns only when it fails.
void RestartProgram(AgentServices& services, const StartArguments& arguments, UniqueFd listener);

// Starts the guard and executes the script of the order. `reserve` holds the port. Returns only
// when that fails, with the files of the order removed.
void RunUpgrade(AgentServices& services, const StartArguments& arguments, UpgradeOrder& order,
                const UniqueFd& reserve);

}  // namespace zot
