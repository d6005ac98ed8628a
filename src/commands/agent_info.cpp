#include "commands/agent_info.h"

#include <sys/utsname.h>

#include <cstddef>
#include <initializer_list>
#include <span>
#include <string_view>

#include "base/vystring.h"
#include "config/check_record.h"

namespace zot {
namespace {

void AppendPair(Reply& reply, std::string_view name, std::string_view value,
                Escaping escaping = Escaping::kNone) {
    reply.AppendLine(VyString::Concat(name, value), escaping);
}

std::string_view FlagText(bool flag) { return flag ? "1" : "0"; }

const CheckRecord* CheckAt(CheckRecord::Kind kind, int place) {
    for (const CheckRecord& check : Checks()) {
        if (check.kind == kind && check.infoPlace == place) return &check;
    }
    return nullptr;
}

void AppendChecks(Reply& reply, const AgentSettings& settings, CheckRecord::Kind kind,
                  std::string_view available, std::string_view enabled) {
    VyString names;
    VyString flags;
    for (int place = 1; const CheckRecord* check = CheckAt(kind, place); ++place) {
        names.Append(check->name);
        names.Append("\r\n");
        flags.Append(FlagText(settings.*check->enabled));
    }
    AppendPair(reply, available, names, Escaping::kLineBreaks);
    AppendPair(reply, enabled, flags);
}

void AppendSystem(Reply& reply) {
    struct utsname system {};
    if (uname(&system) < 0) return;
    AppendPair(reply, "HostName=", system.nodename);
    VyString running("RunningOS=");
    for (auto part : std::initializer_list<std::string_view>{system.sysname, " ", system.release,
                                                             " ", system.version}) {
        running.Append(part);
    }
    reply.AppendLine(running);
    reply.AppendLine("OSUpdates=not implemented");
}

}  // namespace

const char kAgentVersion[] = ZOT_VERSION;

void GetInfo(const AgentSettings& settings, const ConnectionCounters& counters, Reply& reply) {
    reply.Start("200");
    AppendPair(reply, "AgentName=", kAgentName);
    AppendPair(reply, "AgentPlatform=", kAgentPlatform);
    AppendPair(reply, "AgentVersion=", kAgentVersion);
    reply.AppendFormatted("AgentDeveloper=%s, %s", kDeveloperName, kDeveloperWeb);
    // Servers expect both flags of a Windows service; here they never change.
    reply.AppendLine("Service=0");
    reply.AppendLine("Active=0");
    reply.AppendFormatted("ActiveConnections=%d", counters.activeConnections.load());
    reply.AppendFormatted("OpenedConnections=%d", counters.openedConnections.load());
    reply.AppendFormatted("FailedConnections=%d", counters.failedConnections.load());
    AppendChecks(reply, settings, CheckRecord::Kind::kTest, "Available tests=", "Enabled tests=");
    reply.AppendFormatted("Port=%d", settings.port);
    reply.AppendFormatted("Timeout=%d", settings.timeout);
    AppendPair(reply, "Comment=", settings.comment);
    AppendChecks(reply, settings, CheckRecord::Kind::kAction,
                 "Available actions=", "Enabled actions=");
    AppendSystem(reply);
}

void GetSettings(const AgentSettings& settings, const ConnectionCounters& counters, Reply& reply) {
    GetInfo(settings, counters, reply);
    // From here on the reply must not move: that would leave the password in freed memory.
    size_t room = 512;
    for (const VyString* text :
         {&settings.okLogFile, &settings.badLogFile, &settings.password, &settings.filterMarks,
          &settings.updateAddr, &settings.manageAddr}) {
        room += text->View().size();
    }
    constexpr size_t kEscapedSize = 3;
    reply.MakeRoom(room + kEscapedSize * settings.filterList.View().size());
    AppendPair(reply, "LogOkConn=", FlagText(settings.logSuccess));
    AppendPair(reply, "LogBadConn=", FlagText(settings.logFails));
    AppendPair(reply, "OkLogFile=", settings.okLogFile);
    AppendPair(reply, "BadLogFile=", settings.badLogFile);
    VyString password = VyString::Concat("Password=", settings.password);
    reply.AppendLine(password);
    password.Wipe();
    AppendPair(reply, "IPFiltering=", FlagText(settings.filterActive));
    AppendPair(reply, "IPFilterAddr=", settings.filterList, Escaping::kLineBreaks);
    AppendPair(reply, "IPFilterMarks=", settings.filterMarks);
    AppendPair(reply, "AllowUpdates=", FlagText(settings.allowUpdates));
    AppendPair(reply, "AllowRManage=", FlagText(settings.allowManage));
    AppendPair(reply, "UpdateAddr=", settings.updateAddr);
    AppendPair(reply, "ManageAddr=", settings.manageAddr);
}

}  // namespace zot
