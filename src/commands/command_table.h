// Every command that the agent knows: those of the checks, and those about the agent itself.
#pragma once

#include <span>
#include <string_view>

#include "commands/dispatcher.h"
#include "config/check_record.h"
#include "config/settings.h"
#include "protocol/reply.h"

namespace zot {

enum class Permission {
    kAnyone,
    kTest,  // one of the switches, as for an action; only the refusals differ
    kAction,
    kManage,   // allowManage and manageAddr
    kUpgrade,  // allowUpdates and updateAddr
};

// A command that reads or changes the agent itself.
using ProcessHandler = void (*)(RequestContext& request, Reply& reply);

struct Command {
    std::string_view name;
    bool mayTakeLong = false;
    Permission permission = Permission::kAnyone;
    std::span<bool AgentSettings::*const> switches = {};  // of tests and actions
    CheckHandler check = nullptr;                         // exactly one of the two is set
    ProcessHandler process = nullptr;
    bool withoutPassword = false;  // an agent without a password serves it too
};

std::span<const Command> CommandTable();

// The command with exactly this name; nullptr if there is none.
const Command* FindCommand(std::string_view name);

}  // namespace zot
