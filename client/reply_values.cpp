#include "client/reply_values.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "base/escaping.h"
#include "base/numbers.h"
#include "base/vystring.h"
#include "client/reply_times.h"
#include "client/text.h"

namespace zot::client {
namespace {

constexpr std::string_view kAlgorithms[] = {"crc32", "md5", "sha256", "sha512"};
constexpr std::string_view kModes[] = {"", "compare", "find_file", "find_text"};

template <size_t n>
bool TakeWord(std::string_view text, const std::string_view (&words)[n], Value& value) {
    int64_t number = -1;
    bool known = ParseInt64(text, number) && number >= 0 && number < int64_t{n};
    value = std::string(known ? words[number] : text);
    return true;
}

bool TakeInteger(std::string_view text, Value& value) {
    int64_t number = 0;
    if (!ParseInt64(text, number)) return false;
    value = number;
    return true;
}

bool TakeDecimal(std::string_view text, double factor, Value& value) {
    double number = 0;
    if (!ParseDecimal(text, number)) return false;
    value = number * factor;
    return true;
}

bool TakeLocalTime(std::string_view text, Value& value) {
    value = LocalTimeText(text);
    return !std::get<std::string>(value).empty();
}

}  // namespace

std::vector<std::string> LinesOf(std::string_view text) {
    std::vector<std::string> lines;
    for (size_t start = 0; start < text.size();) {
        size_t end = std::min(text.find('\n', start), text.size());
        std::string_view line = text.substr(start, end - start);
        if (line.ends_with('\r')) line.remove_suffix(1);
        lines.emplace_back(line);
        start = end + 1;
    }
    return lines;
}

bool Convert(Kind kind, std::string_view text, Field& field) {
    std::string_view trimmed = TrimView(text);
    switch (kind) {
        case Kind::kText:
            field.value = std::string(text);
            return true;
        case Kind::kEscaped:
            field.value = std::string(Unescape(text).View());
            return true;
        case Kind::kLines:
            field.value = LinesOf(Unescape(text).View());
            return true;
        case Kind::kInteger:
            return TakeInteger(trimmed, field.value);
        case Kind::kDecimal:
            return TakeDecimal(trimmed, 1, field.value);
        case Kind::kFlag:
            field.value = trimmed == "1";
            return trimmed == "1" || trimmed == "0";
        case Kind::kBytes:
            field.unit = Unit::kBytes;
            return TakeInteger(trimmed, field.value);
        case Kind::kPercent:
            field.unit = Unit::kPercent;
            return TakeDecimal(trimmed, 1, field.value);
        case Kind::kMilliseconds:
            field.unit = Unit::kSeconds;
            return TakeDecimal(trimmed, 0.001, field.value);
        case Kind::kMinutes:
            field.unit = Unit::kSeconds;
            return TakeDecimal(trimmed, 60, field.value);
        case Kind::kLocalTime:
            return TakeLocalTime(trimmed, field.value);
        case Kind::kAlgorithm:
            return TakeWord(trimmed, kAlgorithms, field.value);
        case Kind::kMode:
            return TakeWord(trimmed, kModes, field.value);
    }
    return false;
}

}  // namespace zot::client
