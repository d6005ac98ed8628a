#include "commands/remote_settings.h"

#include <cstddef>
#include <iterator>
#include <string>
#include <vector>

#include "base/escaping.h"
#include "base/numbers.h"
#include "config/check_record.h"
#include "config/config_save.h"
#include "protocol/request_text.h"

namespace zot {
namespace {

using A = AgentSettings;

constexpr WireSetting Text(std::string_view name, VyString A::*text,
                           WireKind kind = WireKind::kText) {
    return {.name = name, .kind = kind, .text = text};
}

constexpr WireSetting Flag(std::string_view name, bool A::*flag) {
    return {.name = name, .kind = WireKind::kFlag, .flag = flag};
}

constexpr WireSetting Number(std::string_view name, int32_t A::*number) {
    return {.name = name, .kind = WireKind::kNumber, .number = number};
}

constexpr WireSetting kOwnSettings[] = {
    Text("Comment", &A::comment),
    Number("Port", &A::port),
    Number("Timeout", &A::timeout),
    Text("Password", &A::password),
    Flag("LogOkConn", &A::logSuccess),
    Flag("LogBadConn", &A::logFails),
    Text("OkLogFile", &A::okLogFile),
    Text("BadLogFile", &A::badLogFile),
    Flag("IPFiltering", &A::filterActive),
    Text("IPFilterAddr", &A::filterList, WireKind::kEscapedText),
    Text("IPFilterMarks", &A::filterMarks),
    Flag("AllowUpdates", &A::allowUpdates),
    Flag("AllowRManage", &A::allowManage),
    Text("UpdateAddr", &A::updateAddr),
    Text("ManageAddr", &A::manageAddr),
};

std::vector<WireSetting> AllSettings() {
    std::vector<WireSetting> settings(std::begin(kOwnSettings), std::end(kOwnSettings));
    for (const CheckRecord& check : Checks()) {
        if (check.remote) settings.push_back(Flag(check.name, check.enabled));
    }
    return settings;
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
            settings.*setting.flag = IsFlagSet(value);
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

std::span<const WireSetting> WireSettings() {
    // Never destroyed: sessions may still change settings while the process ends.
    static const auto& settings = *new std::vector<WireSetting>(AllSettings());
    return settings;
}

const WireSetting* FindWireSetting(std::string_view name) {
    for (const WireSetting& setting : WireSettings()) {
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
    bool saved = SaveConfigLocked(store, applyLines, errorText);
    reply.Start(saved ? "200" : "300");
    if (!saved) reply.AppendRaw(errorText);
}

}  // namespace zot
