#include "commands/remote_settings.h"

#include "config/config_file.h"
#include "protocol/request_text.h"

namespace zot {
namespace {

using A = AgentSettings;

constexpr WireSetting Text(std::string_view name, VyString A::*text,
                           WireKind kind = WireKind::kText) {
    return {.name = name, .kind = kind, .text = text};
}

constexpr WireSetting Flag(std::string_view name, int32_t A::*number) {
    return {.name = name, .kind = WireKind::kFlag, .number = number};
}

constexpr WireSetting Number(std::string_view name, int32_t A::*number) {
    return {.name = name, .kind = WireKind::kNumber, .number = number};
}

void ApplyValue(AgentSettings& settings, const WireSetting& setting, std::string_view value) {
    switch (setting.kind) {
        case WireKind::kText:
            settings.*setting.text = value;
            break;
        case WireKind::kEscapedText:
            settings.*setting.text = Unescape(value);
            break;
        case WireKind::kNumber:
            settings.*setting.number = ToInt(value);
            break;
        case WireKind::kFlag:
            // Stricter than the file, where a value need only begin with "1": servers send "1" or
            // "0".
            settings.*setting.number = IsFlagSet(value) ? 1 : 0;
            break;
    }
}

void ApplyLine(AgentSettings& settings, std::string_view line) {
    size_t equals = line.find('=');
    if (equals == std::string_view::npos) return;
    const WireSetting* setting = FindWireSetting(TrimView(line.substr(0, equals)));
    if (setting != nullptr) ApplyValue(settings, *setting, TrimView(line.substr(equals + 1)));
}

}  // namespace

constexpr std::array<WireSetting, kWireSettingCount> kWireSettings = {{
    Text("Comment", &A::comment),
    Number("Port", &A::port),
    Number("Timeout", &A::timeout),
    Text("Password", &A::password),
    Flag("LogOkConn", &A::logSuccess),
    Flag("LogBadConn", &A::logFails),
    Text("OkLogFile", &A::okLogFile),
    Text("BadLogFile", &A::badLogFile),
    Flag("Ping", &A::testPing),
    Flag("TCP", &A::testTcp),
    Flag("UDP", &A::testUdp),
    Flag("UNC", &A::testUnc),
    Flag("Drive Space", &A::testFreeSpace),
    Flag("Folder Size", &A::testFolderSize),
    Flag("Count Files", &A::testCountFiles),
    Flag("File Availability", &A::testFileExists),
    Flag("File Compare", &A::testCompareFiles),
    Flag("Text Log", &A::testTextLog),
    Flag("File Integrity", &A::testFileCrc),
    Flag("Process", &A::testProcess),
    Flag("Service", &A::testService),
    Flag("NT Event Log", &A::testNtEventLog),
    Flag("CPU Usage", &A::testCpuUsage),
    Flag("Perf Counter", &A::testPerfCounter),
    Flag("Script", &A::testScript),
    Flag("External", &A::testExternal),
    Flag("SNMP", &A::testSnmp),
    Flag("Execute external command", &A::actExecute),
    Flag("TCP/UDP send", &A::actTcpUdp),
    Flag("Syslog", &A::actSyslog),
    Flag("IPFiltering", &A::filterActive),
    Text("IPFilterAddr", &A::filterList, WireKind::kEscapedText),
    Text("IPFilterMarks", &A::filterMarks),
    Flag("AllowUpdates", &A::allowUpdates),
    Flag("AllowRManage", &A::allowManage),
    Text("UpdateAddr", &A::updateAddr),
    Text("ManageAddr", &A::manageAddr),
}};

const WireSetting* FindWireSetting(std::string_view name) {
    for (const WireSetting& setting : kWireSettings) {
        if (setting.name == name) return &setting;
    }
    return nullptr;
}

void SetSettings(std::string_view params, SettingsStore& store, Reply& reply) {
    VyString errorText;
    auto applyLines = [params](AgentSettings& settings) mutable {
        std::string_view line;
        while (NextLine(params, line)) ApplyLine(settings, line);
    };
    int saved = SaveConfigLocked(store, applyLines, errorText);
    reply.Start(saved != 0 ? "200" : "300");
    if (saved == 0) reply.AppendRaw(errorText);
}

}  // namespace zot
