#include "commands/command_table.h"

#include <array>
#include <iterator>
#include <string>
#include <vector>

#include "base/vystring.h"
#include "checks/files/file_checks.h"
#include "commands/agent_info.h"
#include "commands/remote_settings.h"
#include "config/config_file.h"

namespace zot {
namespace {

void NotApplicable(std::string_view, const AgentSettings&, Reply& reply) {
    reply.Start("500", "Not applicable for UNIX/Linux");
}

void NotImplemented(std::string_view, const AgentSettings&, Reply& reply) {
    reply.Start("500", "not implemented yet");
}

void AnswerGetInfo(RequestContext& request, Reply& reply) {
    GetInfo(request.settings, request.counters, reply);
}

void AnswerGetSettings(RequestContext& request, Reply& reply) {
    GetSettings(request.settings, request.counters, reply);
}

void AnswerSetSettings(RequestContext& request, Reply& reply) {
    SetSettings(request.params, request.store, reply);
}

void ReloadCfg(RequestContext& request, Reply& reply) {
    VyString errorText;
    if (LoadConfigLocked(request.store, errorText)) {
        reply.Start("200", "Ok");
    } else {
        reply.Start("300", errorText);
    }
}

void Quit(RequestContext& request, Reply& reply) {
    request.control.RequestTerminate();
    reply.Start("200", "Ok");
}

void ReloadApp(RequestContext& request, Reply& reply) {
    request.control.RequestReload();
    reply.Start("200", "Ok");
}

void UpgradeCode(RequestContext& request, Reply& reply) {
    request.control.BeginUpgrade(request.params, reply);
}

constexpr Command Other(std::string_view name, CheckHandler handler) {
    return {.name = name, .check = handler};
}

constexpr Command Own(std::string_view name, ProcessHandler handler, Permission permission) {
    return {.name = name, .permission = permission, .process = handler};
}

// What shows a problem and repairs it.
constexpr Command Rescue(std::string_view name, ProcessHandler handler, Permission permission) {
    Command command = Own(name, handler, permission);
    command.withoutPassword = true;
    return command;
}

// The listing serves those who set up one of these checks.
constexpr bool AgentSettings::*kListingSwitches[] = {
    &AgentSettings::testFolderSize,   &AgentSettings::testCountFiles,
    &AgentSettings::testFileExists,   &AgentSettings::testFileCrc,
    &AgentSettings::testCompareFiles, &AgentSettings::testTextLog,
};

constexpr Command kOtherCommands[] = {
    {.name = "GetFilesList",
     .mayTakeLong = true,
     .permission = Permission::kTest,
     .switches = kListingSwitches,
     .check = GetFilesList},
    Other("TEST-DiskSpace", NotApplicable),
    Other("TEST-Service", NotApplicable),
    Other("TEST-NTLog", NotApplicable),
    Other("TEST-PerfCounter", NotApplicable),
    Other("TEST-Script", NotImplemented),
    Other("TEST-SNMP", NotImplemented),
    Other("TEST-Ping", NotImplemented),
    Other("GetServicesList", NotApplicable),
    Other("GetEventLogFiles", NotApplicable),
    Other("GetEventLogSources", NotApplicable),
    Other("GetDriveList", NotImplemented),
    Rescue("GetInfo", AnswerGetInfo, Permission::kAnyone),
    Rescue("ReloadCfg", ReloadCfg, Permission::kManage),
    Own("ReloadApp", ReloadApp, Permission::kManage),
    Own("QUIT", Quit, Permission::kManage),
    Rescue("GetSettings", AnswerGetSettings, Permission::kManage),
    Own("SetSettings", AnswerSetSettings, Permission::kManage),
    {.name = "UpgradeCode",
     .mayTakeLong = true,
     .permission = Permission::kUpgrade,
     .process = UpgradeCode},
};

std::vector<Command> AllCommands() {
    std::vector<Command> commands;
    for (const CheckRecord& check : Checks()) {
        bool isTest = check.kind == CheckRecord::Kind::kTest;
        for (const CheckCommand& command : check.commands) {
            if (command.handler == nullptr) continue;
            commands.push_back({.name = command.name,
                                .mayTakeLong = command.mayTakeLong,
                                .permission = isTest ? Permission::kTest : Permission::kAction,
                                .switches = {&check.enabled, 1},
                                .check = command.handler});
        }
    }
    commands.insert(commands.end(), std::begin(kOtherCommands), std::end(kOtherCommands));
    return commands;
}

}  // namespace

std::span<const Command> CommandTable() {
    // Never destroyed: sessions still answer while the process ends.
    static const auto& commands = *new std::vector<Command>(AllCommands());
    return commands;
}

const Command* FindCommand(std::string_view name) {
    for (const Command& command : CommandTable()) {
        if (command.name == name) return &command;
    }
    return nullptr;
}

}  // namespace zot
