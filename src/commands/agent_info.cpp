#include "commands/agent_info.h"

#include <sys/utsname.h>

#include <initializer_list>
#include <string_view>

namespace zot {
namespace {

struct Feature {
    std::string_view name;
    int32_t AgentSettings::*enabled;
};

constexpr Feature kTests[] = {
    {"TCP", &AgentSettings::testTcp},
    {"UDP", &AgentSettings::testUdp},
    {"UNC", &AgentSettings::testUnc},
    {"Folder Size", &AgentSettings::testFolderSize},
    {"Count Files", &AgentSettings::testCountFiles},
    {"File Availability", &AgentSettings::testFileExists},
    {"File Integrity", &AgentSettings::testFileCrc},
    {"File Compare", &AgentSettings::testCompareFiles},
    {"Text Log", &AgentSettings::testTextLog},
    {"Process", &AgentSettings::testProcess},
    {"CPU Usage", &AgentSettings::testCpuUsage},
    {"External", &AgentSettings::testExternal},
    {"Shell Script", &AgentSettings::testShellScript},
};

constexpr Feature kActions[] = {
    {"Execute external command", &AgentSettings::actExecute},
    {"TCP/UDP send", &AgentSettings::actTcpUdp},
    {"Syslog", &AgentSettings::actSyslog},
};

void AppendPair(Reply& reply, std::string_view name, std::string_view value,
                Escaping escaping = Escaping::kNone) {
    reply.AppendLine(VyString::Concat(name, value), escaping);
}

std::string_view FlagText(int32_t flag) { return flag != 0 ? "1" : "0"; }

template <size_t n>
void AppendFeatures(Reply& reply, const AgentSettings& settings, const Feature (&features)[n],
                    std::string_view available, std::string_view enabled) {
    VyString names;
    VyString flags;
    for (const Feature& feature : features) {
        names.Append(feature.name);
        names.Append("\r\n");
        flags.Append(FlagText(settings.*feature.enabled));
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
    AppendFeatures(reply, settings, kTests, "Available tests=", "Enabled tests=");
    reply.AppendFormatted("Port=%d", settings.port);
    reply.AppendFormatted("Timeout=%d", settings.timeout);
    AppendPair(reply, "Comment=", settings.comment);
    AppendFeatures(reply, settings, kActions, "Available actions=", "Enabled actions=");
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
