// Every command the agent knows, one row each, in the order of comparison.
#pragma once

#include <span>
#include <string_view>

#include "commands/dispatcher.h"

namespace zot {

enum class Permission {
    kAnyone,   // the handler looks at its own switch
    kManage,   // allowManage and manageAddr
    kUpgrade,  // allowUpdates and updateAddr
};

// A check or an action: parameter text, settings and reply are all that it sees.
using CheckHandler = void (*)(std::string_view params, const AgentSettings& settings, Reply& reply);
// A command that looks at or changes the agent itself.
using ProcessHandler = void (*)(RequestContext& request, Reply& reply);

struct Command {
    constexpr Command(std::string_view commandName, CheckHandler handler)
        : name(commandName), check(handler) {}
    constexpr Command(std::string_view commandName, ProcessHandler handler, Permission who)
        : name(commandName), permission(who), process(handler) {}

    std::string_view name;
    Permission permission = Permission::kAnyone;
    CheckHandler check = nullptr;  // exactly one of the two is set
    ProcessHandler process = nullptr;
};

std::span<const Command> CommandTable();

}  // namespace zot
