#include "config/config_keys.h"

#include <algorithm>

#include "base/ascii.h"

namespace zot {
namespace {

using A = AgentSettings;
using enum SaveRule;

constexpr ConfigKey Text(std::string_view name, VyString A::*text, const char* value,
                         SaveRule save = kAlways) {
    return {.name = name,
            .kind = ConfigKind::kString,
            .save = save,
            .text = text,
            .defaultText = value};
}

constexpr ConfigKey Flag(std::string_view name, int32_t A::*number, int32_t value,
                         SaveRule save = kAlways) {
    return {.name = name,
            .kind = ConfigKind::kFlag,
            .save = save,
            .number = number,
            .defaultNumber = value};
}

constexpr ConfigKey Number(std::string_view name, int32_t A::*number, std::optional<int32_t> value,
                           SaveRule save, ConfigKind kind = ConfigKind::kNumber) {
    return {.name = name, .kind = kind, .save = save, .number = number, .defaultNumber = value};
}

// The default list and the default marks look exchanged. Agents in the field start from them, and
// the warning that they lead to is known, so they stay.
constexpr ConfigKey kFilterListKey = {.name = "filterlist",
                                      .kind = ConfigKind::kFilterList,
                                      .save = kAlways,
                                      .text = &A::filterList,
                                      .defaultText = "1"};

bool SameKey(std::string_view key, std::string_view name) {
    return std::equal(key.begin(), key.end(), name.begin(), name.end(),
                      [](char a, char b) { return LowerAscii(a) == b; });
}

}  // namespace

constexpr std::array<ConfigKey, kConfigKeyCount> kConfigKeys = {{
    Text("host", &A::host, nullptr),
    Number("port", &A::port, {}, kAlways, ConfigKind::kPort),
    Number("timeout", &A::timeout, {}, kAlways),
    Text("comment", &A::comment, ""),
    Text("password", &A::password, ""),
    Flag("filteractive", &A::filterActive, 0),
    Text("filtermarks", &A::filterMarks, "127.0.0.1"),
    kFilterListKey,
    Text("verboselogfile", &A::verboseLogFile, nullptr),
    Flag("logsuccess", &A::logSuccess, 0),
    Flag("logfails", &A::logFails, 1),
    Text("oklogfile", &A::okLogFile, "log1.txt"),
    Text("badlogfile", &A::badLogFile, "log2.txt"),
    Flag("allowupdates", &A::allowUpdates, 1),
    Flag("allowmanage", &A::allowManage, 1),
    Text("updateaddr", &A::updateAddr, "127.0.0.1"),
    Text("manageaddr", &A::manageAddr, "127.0.0.1"),
    Flag("unc", &A::testUnc, 1),
    // Never appended: files written so far do without it, and a save leaves them so.
    Flag("freespace", &A::testFreeSpace, 1, kInPlace),
    Flag("foldersize", &A::testFolderSize, 1),
    Flag("countfiles", &A::testCountFiles, 1),
    Flag("fileexists", &A::testFileExists, 1),
    Flag("filecrc", &A::testFileCrc, 1),
    Flag("comparefiles", &A::testCompareFiles, 1),
    Flag("process", &A::testProcess, 1),
    Flag("cpuusage", &A::testCpuUsage, 1),
    Flag("script", &A::testScript, 1),
    Flag("external", &A::testExternal, 1),
    Flag("ping", &A::testPing, 1),
    Flag("tcp", &A::testTcp, 1),
    Flag("udp", &A::testUdp, 1),
    Flag("textlog", &A::testTextLog, 1),
    Flag("shellscript", &A::testShellScript, 1),
    Flag("executeaction", &A::actExecute, 0),
    Flag("tcpudpaction", &A::actTcpUdp, 0),
    Flag("syslogaction", &A::actSyslog, 0),
    Text("zotpath", &A::agentPath, "", kNever),
    Text("cpuusagescript", &A::cpuUsageScript, nullptr, kNever),
    Text("proclistscript", &A::procListScript, nullptr, kNever),
    Text("proccntscript", &A::procCntScript, nullptr, kNever),
    Text("tmpdir", &A::tmpDir, "", kNever),
    Text("pidfile", &A::pidFile, "", kNever),
    Number("delayforscripts", &A::delayForScripts, 90000, kNever),
}};

const ConfigKey* FindConfigKey(std::string_view key) {
    const auto* found =
        std::find_if(kConfigKeys.begin(), kConfigKeys.end(),
                     [key](const ConfigKey& entry) { return SameKey(key, entry.name); });
    return found == kConfigKeys.end() ? nullptr : found;
}

void SetConfigDefaults(AgentSettings& settings) {
    for (const ConfigKey& key : kConfigKeys) {
        if (key.defaultText != nullptr) settings.*key.text = key.defaultText;
        if (key.defaultNumber) settings.*key.number = *key.defaultNumber;
    }
    // These have no key: only a remote change sets them, until the next load.
    settings.testService = 0;
    settings.testNtEventLog = 0;
    settings.testPerfCounter = 0;
    settings.testSnmp = 1;
}

}  // namespace zot
