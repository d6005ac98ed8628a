#include <span>
#include <string_view>

#include "checks/files/file_checks.h"
#include "checks/logs/log_checks.h"
#include "checks/net/net_checks.h"
#include "checks/scripts/script_checks.h"
#include "config/check_record.h"
#include "config/config_keys.h"
#include "config/settings.h"

namespace zot {
namespace {

using A = AgentSettings;
using Switch = bool A::*;

constexpr CheckRecord Test(std::string_view key, Switch enabled, std::string_view name,
                           int infoPlace, CheckCommand command, CheckCommand second = {}) {
    return {.key = key,
            .enabled = enabled,
            .name = name,
            .infoPlace = infoPlace,
            .commands = {command, second}};
}

constexpr CheckRecord Action(std::string_view key, Switch enabled, std::string_view name,
                             int infoPlace, CheckCommand command) {
    return {.kind = CheckRecord::Kind::kAction,
            .key = key,
            .enabled = enabled,
            .enabledByDefault = false,
            .name = name,
            .infoPlace = infoPlace,
            .commands = {command}};
}

// A check that servers know and this system does not have: they may read and write its switch.
constexpr CheckRecord Absent(std::string_view key, Switch enabled, std::string_view name,
                             bool enabledByDefault = true) {
    return {.key = key, .enabled = enabled, .enabledByDefault = enabledByDefault, .name = name};
}

constexpr CheckRecord FreeSpace() {
    CheckRecord record = Absent("freespace", &A::testFreeSpace, "Drive Space");
    // Never appended: existing files do without it, and a save must leave them so.
    record.save = SaveRule::kInPlace;
    return record;
}

constexpr CheckRecord ShellScript() {
    CheckRecord record = Test("shellscript", &A::testShellScript, "Shell Script", 13,
                              {"TEST-ShellScript", TestShellScript});
    record.remote = false;  // servers see the switch but have no name to change it by
    return record;
}

constexpr CheckRecord kChecks[] = {
    Test("unc", &A::testUnc, "UNC", 3, {"TEST-UNC", TestUnc, false}),
    FreeSpace(),
    Test("foldersize", &A::testFolderSize, "Folder Size", 4, {"TEST-FolderSize", TestFolderSize}),
    Test("countfiles", &A::testCountFiles, "Count Files", 5, {"TEST-CountFiles", TestCountFiles}),
    Test("fileexists", &A::testFileExists, "File Availability", 6,
         {"TEST-FileExists", TestFileExists, false}),
    Test("filecrc", &A::testFileCrc, "File Integrity", 7, {"TEST-FileHash", TestFileHash}),
    Test("comparefiles", &A::testCompareFiles, "File Compare", 8,
         {"TEST-FileCompare", TestFileCompare}),
    Test("process", &A::testProcess, "Process", 10, {"TEST-Process", TestProcess},
         {"GetProcessesList", GetProcessesList}),
    Test("cpuusage", &A::testCpuUsage, "CPU Usage", 11, {"TEST-CPU", TestCpu}),
    Absent("script", &A::testScript, "Script"),
    Test("external", &A::testExternal, "External", 12, {"TEST-ExternalPrg", TestExternalPrg}),
    Absent("ping", &A::testPing, "Ping"),
    Test("tcp", &A::testTcp, "TCP", 1, {"TEST-TCP", TestTcp}),
    Test("udp", &A::testUdp, "UDP", 2, {"TEST-UDP", TestUdp}),
    Test("textlog", &A::testTextLog, "Text Log", 9, {"TEST-TextLog", TestTextLog},
         {"TEST-TextLog2", TestTextLog2}),
    ShellScript(),
    Action("executeaction", &A::actExecute, "Execute external command", 1,
           {"ACT-ExternalCmd", ActExternalCmd}),
    Action("tcpudpaction", &A::actTcpUdp, "TCP/UDP send", 2, {"ACT-TCPUDPsend", ActTcpUdpSend}),
    Action("syslogaction", &A::actSyslog, "Syslog", 3, {"ACT-Syslog", ActSyslog}),
    // Without a key: a change by a server lasts until the next load.
    Absent({}, &A::testService, "Service", false),
    Absent({}, &A::testNtEventLog, "NT Event Log", false),
    Absent({}, &A::testPerfCounter, "Perf Counter", false),
    Absent({}, &A::testSnmp, "SNMP"),
};

}  // namespace

std::span<const CheckRecord> Checks() { return kChecks; }

}  // namespace zot
