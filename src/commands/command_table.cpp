#include "commands/command_table.h"

#include "checks/files/file_checks.h"
#include "checks/logs/log_checks.h"
#include "checks/net/net_checks.h"
#include "checks/scripts/script_checks.h"
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
    if (LoadConfigLocked(request.store, errorText) != 0) {
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

constexpr Command kCommands[] = {
    {"TEST-UNC", TestUnc},
    {"TEST-DiskSpace", NotApplicable},
    {"TEST-FolderSize", TestFolderSize},
    {"TEST-FileExists", TestFileExists},
    {"TEST-FileCompare", TestFileCompare},
    {"TEST-FileHash", TestFileHash},
    {"TEST-CountFiles", TestCountFiles},
    {"TEST-Process", TestProcess},
    {"TEST-Service", NotApplicable},
    {"TEST-NTLog", NotApplicable},
    {"TEST-CPU", TestCpu},
    {"TEST-PerfCounter", NotApplicable},
    {"TEST-Script", NotImplemented},
    {"TEST-SNMP", NotImplemented},
    {"TEST-ExternalPrg", TestExternalPrg},
    {"TEST-Ping", NotImplemented},
    {"TEST-TCP", TestTcp},
    {"TEST-UDP", TestUdp},
    {"TEST-TextLog", TestTextLog},
    {"TEST-TextLog2", TestTextLog2},
    {"TEST-ShellScript", TestShellScript},
    {"ACT-ExternalCmd", ActExternalCmd},
    {"ACT-TCPUDPsend", ActTcpUdpSend},
    {"ACT-Syslog", ActSyslog},
    {"GetProcessesList", GetProcessesList},
    {"GetServicesList", NotApplicable},
    {"GetEventLogFiles", NotApplicable},
    {"GetEventLogSources", NotApplicable},
    {"GetDriveList", NotImplemented},
    {"GetFilesList", GetFilesList},
    {"GetInfo", AnswerGetInfo, Permission::kAnyone},
    {"ReloadCfg", ReloadCfg, Permission::kManage},
    {"ReloadApp", ReloadApp, Permission::kManage},
    {"QUIT", Quit, Permission::kManage},
    {"GetSettings", AnswerGetSettings, Permission::kManage},
    {"SetSettings", AnswerSetSettings, Permission::kManage},
    {"UpgradeCode", UpgradeCode, Permission::kUpgrade},
};

}  // namespace

std::span<const Command> CommandTable() { return kCommands; }

}  // namespace zot
