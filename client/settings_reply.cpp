#include "client/settings_reply.h"

#include <algorithm>

#include "base/ascii.h"
#include "base/escaping.h"
#include "base/numbers.h"
#include "base/vystring.h"
#include "client/reply_values.h"
#include "commands/remote_settings.h"

namespace zot::client {
namespace {

constexpr std::string_view kInfoTexts[] = {"AgentName",      "AgentPlatform", "AgentVersion",
                                           "AgentDeveloper", "Comment",       "HostName",
                                           "RunningOS",      "OSUpdates"};
constexpr std::string_view kInfoNumbers[] = {"ActiveConnections", "OpenedConnections",
                                             "FailedConnections", "Port", "Timeout"};
constexpr std::string_view kInfoFlags[] = {"Service", "Active"};
// What fits into a table.
constexpr std::string_view kInfoInTable[] = {"AgentVersion", "HostName", "OpenedConnections"};

struct Pair {
    std::string_view name;
    std::string_view value;  // escaped
};

template <size_t n>
bool IsOneOf(const std::string_view (&names)[n], std::string_view name) {
    return std::find(std::begin(names), std::end(names), name) != std::end(names);
}

std::vector<Pair> Pairs(const Answer& answer) {
    std::vector<Pair> pairs;
    for (const std::string& line : answer.lines) {
        size_t equals = line.find('=');
        if (equals == std::string::npos) continue;
        std::string_view text = line;
        pairs.push_back({text.substr(0, equals), text.substr(equals + 1)});
    }
    return pairs;
}

std::string_view ValueOf(const std::vector<Pair>& pairs, std::string_view name) {
    for (const Pair& pair : pairs) {
        if (pair.name == name) return pair.value;
    }
    return {};
}

// The entries whose mark is '1'.
std::vector<std::string> Enabled(const std::vector<Pair>& pairs, std::string_view entries,
                                 std::string_view marks) {
    std::vector<std::string> all = EntriesOf(ValueOf(pairs, entries)), enabled;
    std::string_view flags = ValueOf(pairs, marks);
    for (size_t i = 0; i < all.size() && i < flags.size(); ++i) {
        if (flags[i] == '1') enabled.push_back(all[i]);
    }
    return enabled;
}

Value NumberOrText(std::string_view text) {
    int64_t number = 0;
    if (ParseInt64(TrimView(text), number)) return number;
    return std::string(text);
}

// "Linux 6.1" from "Linux 6.1.0-21-amd64 #1 SMP ...".
std::string ShortSystem(std::string_view running) {
    size_t blank = running.find(' ');
    if (blank == std::string_view::npos) return std::string(running);
    size_t end = blank + 1;
    int points = 0;
    while (end < running.size() &&
           (IsDigit(running[end]) || (running[end] == '.' && ++points < 2))) {
        ++end;
    }
    return std::string(running.substr(0, end));
}

Field MakeField(const Pair& pair, Value value) {
    Field field = {SnakeCase(pair.name), std::move(value)};
    field.label = pair.name;
    return field;
}

void AddFeatures(const std::vector<Pair>& pairs, std::string_view entries, std::string_view marks,
                 Record& record) {
    std::vector<std::string> all = EntriesOf(ValueOf(pairs, entries));
    std::string_view flags = ValueOf(pairs, marks);
    for (size_t i = 0; i < all.size() && i < flags.size(); ++i) {
        record.push_back(MakeField({all[i], ""}, flags[i] == '1'));
    }
}

Value SettingValue(const WireSetting& setting, std::string_view text) {
    switch (setting.kind) {
        case WireKind::kFlag:
            return text == "1";
        case WireKind::kNumber:
            return NumberOrText(text);
        case WireKind::kEscapedText:
            return EntriesOf(text);
        case WireKind::kText:
            break;
    }
    if (setting.name == "Password") return std::string(text.empty() ? "" : kHiddenPassword);
    return std::string(text);
}

}  // namespace

std::vector<std::string> EntriesOf(std::string_view escaped) {
    std::vector<std::string> entries;
    for (const std::string& line : LinesOf(Unescape(escaped).View())) {
        std::string_view entry = TrimView(line);
        if (!entry.empty()) entries.emplace_back(entry);
    }
    return entries;
}

std::string SnakeCase(std::string_view name) {
    auto isUpper = [](char c) { return c >= 'A' && c <= 'Z'; };
    std::string result;
    for (size_t i = 0; i < name.size(); ++i) {
        if (!IsAlnum(name[i])) {
            if (!result.empty() && !result.ends_with('_')) result += '_';
            continue;
        }
        // A word begins at a capital after a small letter, and at the last capital of several.
        bool afterSmall = i > 0 && IsAlnum(name[i - 1]) && !isUpper(name[i - 1]);
        bool beforeSmall = i + 1 < name.size() && IsAlnum(name[i + 1]) && !isUpper(name[i + 1]);
        bool begins = isUpper(name[i]) && (afterSmall || (i > 0 && beforeSmall));
        if (begins && !result.empty() && !result.ends_with('_')) result += '_';
        result += LowerAscii(name[i]);
    }
    return result;
}

Record ReadInfo(const Answer& answer) {
    Record record;
    const std::vector<Pair> pairs = Pairs(answer);
    for (const Pair& pair : pairs) {
        Value value;
        if (IsOneOf(kInfoTexts, pair.name)) {
            value = std::string(pair.value);
        } else if (IsOneOf(kInfoNumbers, pair.name)) {
            value = NumberOrText(pair.value);
        } else if (IsOneOf(kInfoFlags, pair.name)) {
            value = pair.value == "1";
        } else {
            continue;
        }
        bool inTable = IsOneOf(kInfoInTable, pair.name);
        record.push_back({SnakeCase(pair.name), std::move(value), {}, inTable});
    }
    record.push_back({"system", ShortSystem(ValueOf(pairs, "RunningOS"))});
    for (const char* kind : {"tests", "actions"}) {
        std::string available = std::string("Available ") + kind;
        std::string enabled = std::string("Enabled ") + kind;
        record.push_back({SnakeCase(available), EntriesOf(ValueOf(pairs, available)), {}, false});
        record.push_back({SnakeCase(enabled), Enabled(pairs, available, enabled), {}, false});
    }
    return record;
}

Record ReadSettings(const Answer& answer) {
    Record record;
    const std::vector<Pair> pairs = Pairs(answer);
    for (const Pair& pair : pairs) {
        if (const WireSetting* setting = FindWireSetting(pair.name)) {
            record.push_back(MakeField(pair, SettingValue(*setting, pair.value)));
        } else if (pair.name == "Available tests") {
            AddFeatures(pairs, pair.name, "Enabled tests", record);
        } else if (pair.name == "Available actions") {
            AddFeatures(pairs, pair.name, "Enabled actions", record);
        }
    }
    return record;
}

std::vector<std::string> InfoFieldNames() {
    std::vector<std::string> names;
    for (auto table : {std::span(kInfoTexts).subspan(0), std::span(kInfoNumbers).subspan(0),
                       std::span(kInfoFlags).subspan(0)}) {
        for (std::string_view name : table) names.push_back(SnakeCase(name));
    }
    for (const char* name :
         {"system", "available_tests", "enabled_tests", "available_actions", "enabled_actions"}) {
        names.emplace_back(name);
    }
    return names;
}

std::vector<std::string> SettingsFieldNames() {
    std::vector<std::string> names;
    for (const WireSetting& setting : WireSettings()) names.push_back(SnakeCase(setting.name));
    names.emplace_back("shell_script");
    return names;
}

}  // namespace zot::client
