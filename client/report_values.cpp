#include "client/report_values.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cmath>
#include <ctime>
#include <nlohmann/json.hpp>

#include "base/ascii.h"
#include "base/numbers.h"
#include "client/text.h"

namespace zot::client {
namespace {

std::string Shortest(double number) {
    char text[400];  // the largest double has 309 digits
    auto end = std::to_chars(text, text + sizeof text, number, std::chars_format::fixed).ptr;
    return {text, end};
}

std::string Joined(const std::vector<std::string>& parts, std::string_view separator) {
    std::string text;
    for (const std::string& part : parts) {
        if (!text.empty()) text += separator;
        text += part;
    }
    return text;
}

std::string TimeText(int64_t moment) {
    const auto seconds = static_cast<time_t>(moment);
    std::tm parts = {};
    localtime_r(&seconds, &parts);
    char text[32];
    return {text, strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts)};
}

std::string WithUnit(double number, Unit unit) {
    switch (unit) {
        case Unit::kBytes:
            return FormatBytes(number);
        case Unit::kSeconds:
            return FormatSeconds(number);
        case Unit::kPercent:
            return FormatDecimal(number, 0) + "%";
        case Unit::kTimestamp:
            return TimeText(static_cast<int64_t>(number));
        case Unit::kNone:
            break;
    }
    return FormatDecimal(number);
}

}  // namespace

std::string PlainText(const Value& value) {
    if (auto flag = std::get_if<bool>(&value)) return *flag ? "1" : "0";
    if (auto integer = std::get_if<int64_t>(&value)) return std::to_string(*integer);
    if (auto number = std::get_if<double>(&value)) return Shortest(*number);
    if (auto text = std::get_if<std::string>(&value)) return *text;
    if (auto list = std::get_if<std::vector<std::string>>(&value)) return Joined(*list, "\n");
    return {};
}

std::string HumanText(const Field& field) {
    if (std::holds_alternative<std::monostate>(field.value)) return "-";
    if (auto flag = std::get_if<bool>(&field.value)) return *flag ? "yes" : "no";
    if (auto list = std::get_if<std::vector<std::string>>(&field.value)) {
        return Visible(Joined(*list, ", "));
    }
    if (auto text = std::get_if<std::string>(&field.value)) {
        return text->empty() ? "-" : Visible(*text);
    }
    if (auto integer = std::get_if<int64_t>(&field.value); integer && field.unit == Unit::kNone) {
        return std::to_string(*integer);
    }
    return WithUnit(*Number({field}, field.name), field.unit);
}

nlohmann::ordered_json JsonValue(const Value& value) {
    if (auto flag = std::get_if<bool>(&value)) return *flag;
    if (auto integer = std::get_if<int64_t>(&value)) return *integer;
    if (auto number = std::get_if<double>(&value)) return *number;
    if (auto text = std::get_if<std::string>(&value)) return ValidUtf8(*text);
    if (auto list = std::get_if<std::vector<std::string>>(&value)) {
        auto array = nlohmann::ordered_json::array();
        for (const std::string& entry : *list) array.push_back(ValidUtf8(entry));
        return array;
    }
    return nullptr;
}

bool IsNumeric(const Value& value) {
    return std::holds_alternative<int64_t>(value) || std::holds_alternative<double>(value);
}

std::string ShownName(const Field& field) {
    if (!field.label.empty()) return Visible(field.label);
    std::string name = field.name;
    for (std::string_view unit : {"_timestamp_seconds", "_bytes", "_seconds", "_percent"}) {
        if (!name.ends_with(unit)) continue;
        name.resize(name.size() - unit.size());
        break;
    }
    std::replace(name.begin(), name.end(), '_', ' ');
    return Visible(name);
}

std::string Heading(const Field& field) {
    std::string heading = ShownName(field);
    if (!field.label.empty()) return heading;
    for (char& c : heading) {
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 32);
    }
    return heading;
}

Field ReportField(const HostReport& report, const Record& record, const std::string& name) {
    if (name == "host") return {name, report.host->host.name};
    if (name == "status") return {name, std::string(FailureWord(report.failure))};
    if (name == "code") {
        if (report.answer.code.empty()) return {name, {}};
        return {name, ToInt64(report.answer.code)};
    }
    if (name == "seconds") {
        // Nothing below tenths of a millisecond has any meaning.
        return {name, std::round(report.seconds * 1e4) / 1e4, Unit::kSeconds};
    }
    if (name == "error") {
        if (report.message.empty()) return {name, {}};
        return {name, report.message};
    }
    const Field* field = FindField(record, name);
    return field ? *field : Field{name, {}};
}

nlohmann::ordered_json JsonRecord(const HostReport& report, const Record& record,
                                  const std::vector<std::string>& chosen) {
    nlohmann::ordered_json object;
    auto put = [&](const std::string& name) {
        object[name] = JsonValue(ReportField(report, record, name).value);
    };
    if (!chosen.empty()) {
        for (const std::string& name : chosen) put(name);
        return object;
    }
    for (const char* name : {"host", "status", "code", "seconds"}) put(name);
    for (const Field& field : record) object[ValidUtf8(field.name)] = JsonValue(field.value);
    if (!report.message.empty()) put("error");
    return object;
}

std::string ShortReason(const HostReport& report) {
    std::string limit =
        FormatSeconds(std::chrono::duration<double>(report.host->target.timeout).count());
    switch (report.failure) {
        case Failure::kNone:
            return {};
        case Failure::kResolve:
            // After "cannot find host NAME: ".
            return Visible(report.message.substr(report.message.rfind(": ") + 2));
        case Failure::kConnectRefused:
            return "nobody listens on port " + std::to_string(report.host->target.port);
        case Failure::kConnectTimeout:
            return "no connection in " + limit;
        case Failure::kUnreachable:
            return "no route";
        case Failure::kClosed:
            return "connected, no reply: password or filter";
        case Failure::kTimeout:
            return "no reply in " + limit;
        case Failure::kAgentCode:
        case Failure::kBadReply:
        case Failure::kLocal:
            break;
    }
    return Visible(report.message);
}

}  // namespace zot::client
