#include "config/remote_settings.h"

#include <variant>

#include "config/config_file.h"
#include "protocol/request_text.h"

namespace zot {
namespace {

using Text = VyString AgentSettings::*;

// Flags and numbers are both 32-bit fields, so a row says which of them it is.
struct Flag {
    int32_t AgentSettings::*field;
};
struct Number {
    int32_t AgentSettings::*field;
};
// A text whose "%0D" and "%0A" stand for line breaks.
struct EscapedText {
    Text field;
};

struct WireName {
    std::string_view name;
    std::variant<Text, Number, Flag, EscapedText> target;
};

const WireName kWireNames[] = {
    {"Comment", &AgentSettings::comment},
    {"Port", Number{&AgentSettings::port}},
    {"Timeout", Number{&AgentSettings::timeout}},
    {"Password", &AgentSettings::password},
    {"LogOkConn", Flag{&AgentSettings::logSuccess}},
    {"LogBadConn", Flag{&AgentSettings::logFails}},
    {"OkLogFile", &AgentSettings::okLogFile},
    {"BadLogFile", &AgentSettings::badLogFile},
    {"Ping", Flag{&AgentSettings::testPing}},
    {"TCP", Flag{&AgentSettings::testTcp}},
    {"UDP", Flag{&AgentSettings::testUdp}},
    {"UNC", Flag{&AgentSettings::testUnc}},
    {"Drive Space", Flag{&AgentSettings::testFreeSpace}},
    {"Folder Size", Flag{&AgentSettings::testFolderSize}},
    {"Count Files", Flag{&AgentSettings::testCountFiles}},
    {"File Availability", Flag{&AgentSettings::testFileExists}},
    {"File Compare", Flag{&AgentSettings::testCompareFiles}},
    {"Text Log", Flag{&AgentSettings::testTextLog}},
    {"File Integrity", Flag{&AgentSettings::testFileCrc}},
    {"Process", Flag{&AgentSettings::testProcess}},
    {"Service", Flag{&AgentSettings::testService}},
    {"NT Event Log", Flag{&AgentSettings::testNtEventLog}},
    {"CPU Usage", Flag{&AgentSettings::testCpuUsage}},
    {"Perf Counter", Flag{&AgentSettings::testPerfCounter}},
    {"Script", Flag{&AgentSettings::testScript}},
    {"External", Flag{&AgentSettings::testExternal}},
    {"SNMP", Flag{&AgentSettings::testSnmp}},
    {"Execute external command", Flag{&AgentSettings::actExecute}},
    {"TCP/UDP send", Flag{&AgentSettings::actTcpUdp}},
    {"Syslog", Flag{&AgentSettings::actSyslog}},
    {"IPFiltering", Flag{&AgentSettings::filterActive}},
    {"IPFilterAddr", EscapedText{&AgentSettings::filterList}},
    {"IPFilterMarks", &AgentSettings::filterMarks},
    {"AllowUpdates", Flag{&AgentSettings::allowUpdates}},
    {"AllowRManage", Flag{&AgentSettings::allowManage}},
    {"UpdateAddr", &AgentSettings::updateAddr},
    {"ManageAddr", &AgentSettings::manageAddr},
};

struct Apply {
    AgentSettings& settings;
    std::string_view value;

    void operator()(Text field) const { settings.*field = value; }
    void operator()(Number number) const { settings.*number.field = ToInt(value); }
    // Stricter than the file, where a value need only begin with "1": servers send "1" or "0".
    void operator()(Flag flag) const { settings.*flag.field = IsFlagSet(value) ? 1 : 0; }
    void operator()(EscapedText text) const { settings.*text.field = Unescape(value); }
};

void ApplyLine(AgentSettings& settings, std::string_view line) {
    size_t equals = line.find('=');
    if (equals == std::string_view::npos) return;
    std::string_view name = TrimView(line.substr(0, equals));
    for (const WireName& known : kWireNames) {
        if (known.name != name) continue;
        std::visit(Apply{settings, TrimView(line.substr(equals + 1))}, known.target);
        return;
    }
}

}  // namespace

void SetSettings(std::string_view params, SettingsStore& store, Reply& reply) {
    VyString errorText;
    int saved = store.Change([&](AgentSettings& settings) {
        std::string_view line;
        while (NextLine(params, line)) ApplyLine(settings, line);
        return SaveConfig(settings, errorText);
    });
    reply.Start(saved != 0 ? "200" : "300");
    if (saved == 0) reply.AppendRaw(errorText);
}

std::vector<std::string_view> RemoteSettingNames() {
    std::vector<std::string_view> names;
    for (const WireName& known : kWireNames) names.push_back(known.name);
    return names;
}

}  // namespace zot
