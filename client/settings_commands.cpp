#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iomanip>
#include <ostream>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/escaping.h"
#include "base/numbers.h"
#include "base/vystring.h"
#include "client/invocation.h"
#include "client/options.h"
#include "client/request_packet.h"
#include "client/subcommands.h"
#include "commands/remote_settings.h"
#include "protocol/request_text.h"

namespace zot::client {
namespace {

constexpr std::string_view kPassword = "Password";
constexpr std::string_view kHidden = "********";

// A list, and the setting that holds one character for each of its entries, '1' when it is on.
struct MarkedList {
    std::string_view entries;
    std::string_view marks;
};

constexpr MarkedList kMarkedLists[] = {
    {"Available tests", "Enabled tests"},
    {"Available actions", "Enabled actions"},
    {"IPFilterAddr", "IPFilterMarks"},
};

struct Row {
    std::string_view name;
    std::vector<std::string> values;  // one for each line of the output
};

std::vector<std::string> SplitLines(std::string_view text) {
    std::vector<std::string> lines;
    for (size_t start = 0; start < text.size();) {
        size_t end = std::min(text.find('\n', start), text.size());
        std::string_view line = TrimView(text.substr(start, end - start));
        if (!line.empty()) lines.emplace_back(line);
        start = end + 1;
    }
    return lines;
}

std::vector<Row> MakeRows(const Answer& answer) {
    std::vector<Row> rows;
    for (const std::string& line : answer.lines) {
        size_t equals = line.find('=');
        if (equals == std::string::npos) continue;
        Row row = {std::string_view(line).substr(0, equals),
                   SplitLines(Unescape(std::string_view(line).substr(equals + 1)).View())};
        if (row.values.empty()) row.values.emplace_back();
        rows.push_back(std::move(row));
    }
    return rows;
}

// Writes each mark behind its entry and drops the row of the marks. Where they do not fit each
// other both stay as they are.
void JoinMarks(std::vector<Row>& rows, const MarkedList& list) {
    auto named = [&](std::string_view name) {
        return std::find_if(rows.begin(), rows.end(),
                            [name](const Row& row) { return row.name == name; });
    };
    auto entries = named(list.entries);
    auto marks = named(list.marks);
    if (entries == rows.end() || marks == rows.end()) return;
    const std::string& flags = marks->values[0];
    if (flags.empty() || flags.size() != entries->values.size()) return;
    size_t width = 0;
    for (const std::string& entry : entries->values) width = std::max(width, entry.size());
    for (size_t i = 0; i < flags.size(); ++i) {
        entries->values[i].resize(width, ' ');
        entries->values[i] += flags[i] == '1' ? "  on" : "  off";
    }
    rows.erase(marks);
}

void PrintRows(const std::vector<Row>& rows, std::ostream& out) {
    size_t width = 0;
    for (const Row& row : rows) width = std::max(width, row.name.size());
    for (const Row& row : rows) {
        std::string_view name = row.name;
        for (const std::string& value : row.values) {
            out << std::left << std::setw(static_cast<int>(width)) << name;
            if (!value.empty()) out << "  " << value;
            out << '\n';
            name = "";
        }
    }
}

// Whether `text` is a whole number from `min` on.
bool IsNumber(std::string_view text, int64_t min, int64_t max) {
    int64_t value = 0;
    return ParseInt64(text, value) && value >= min && value <= max;
}

// What is wrong with a value that the agent would misread without a word; empty when nothing is.
std::string_view ValueFault(const WireSetting& setting, std::string_view value) {
    constexpr int64_t kMaxPort = 65535;
    switch (setting.kind) {
        case WireKind::kFlag:
            return value == "0" || value == "1" ? "" : "must be 0 or 1";
        case WireKind::kNumber:
            if (setting.name == "Port") return IsNumber(value, 1, kMaxPort) ? "" : "is no port";
            return IsNumber(value, 0, INT32_MAX) ? "" : "must be a whole number";
        case WireKind::kText:
            if (value.find_first_of("\r\n") != std::string_view::npos) return "takes no line break";
            return setting.name == kPassword && value.empty() ? "must not be empty" : "";
        case WireKind::kEscapedText:
            break;
    }
    return "";
}

// The entries of a list are separated by both characters, whichever of them were given.
std::string WithFullLineBreaks(std::string_view value) {
    std::string result;
    for (char c : value) {
        if (c == '\n' && !result.ends_with('\r')) result += '\r';
        result += c;
    }
    return result;
}

// Makes the request line of one NAME=VALUE. Returns 1, or 0 with the error text.
int MakeLine(const std::string& word, std::string& line, std::string& error) {
    size_t equals = word.find('=');
    if (equals == std::string::npos) {
        error = "not NAME=VALUE: " + word;
        return 0;
    }
    std::string_view name = TrimView(std::string_view(word).substr(0, equals));
    std::string_view value = TrimView(std::string_view(word).substr(equals + 1));
    const WireSetting* setting = FindWireSetting(name);
    if (!setting) {
        error = "no setting with the name " + std::string(name) + "; there are:";
        const char* separator = " ";
        for (const WireSetting& known : WireSettings()) {
            error.append(separator).append(known.name);
            separator = ", ";
        }
        return 0;
    }
    std::string_view fault = ValueFault(*setting, value);
    if (!fault.empty()) {
        error = std::string(name) + " " + std::string(fault);
        return 0;
    }
    line = std::string(name) + "=";
    line += setting->kind == WireKind::kEscapedText ? WithFullLineBreaks(value) : value;
    return 1;
}

}  // namespace

int ShowSettings(Invocation& call) {
    if (call.options.words.size() > 1) {
        return Fail(call.console, "settings takes no parameter", kWrongUsage);
    }
    Answer answer;
    int status = 0;
    if (!AskTarget(call, ComposeRequest("GetSettings", {}), answer, status)) return status;
    if (!call.options.showPassword) {
        for (std::string& line : answer.lines) {
            if (line.starts_with("Password=")) line = "Password=" + std::string(kHidden);
        }
    }
    if (answer.code != "200" || call.options.json) return FinishWithReply(call, answer);
    std::vector<Row> rows = MakeRows(answer);
    for (const MarkedList& list : kMarkedLists) JoinMarks(rows, list);
    PrintRows(rows, call.console.out);
    return Finish(call.console, kReplyOk);
}

int ChangeSettings(Invocation& call) {
    const auto& words = call.options.words;
    if (words.size() < 2) return Fail(call.console, "set needs NAME=VALUE", kWrongUsage);
    std::vector<std::string> lines;
    std::string error;
    for (size_t i = 1; i < words.size(); ++i) {
        if (!MakeLine(words[i], lines.emplace_back(), error)) {
            return Fail(call.console, error, kWrongUsage);
        }
    }
    Answer answer;
    int status = 0;
    if (!AskTarget(call, ComposeRequest("SetSettings", lines), answer, status)) return status;
    return FinishWithReply(call, answer);
}

}  // namespace zot::client
