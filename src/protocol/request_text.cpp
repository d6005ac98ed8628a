#include "protocol/request_text.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "base/ascii.h"

namespace zot {
namespace {

// Bytes from 0x80 up count as blank here: the comparison is one of signed bytes, and servers
// have been written against it.
bool IsLeadingBlank(char c) { return static_cast<signed char>(c) < 33; }

std::string_view UpToLineFeed(std::string_view text) { return text.substr(0, text.find('\n')); }

// What is left of the text from line n on; false when there is no such line.
bool SkipToLine(std::string_view& text, int32_t n) {
    if (n < 1) return false;
    for (; n > 1; --n) {
        size_t at = text.find('\n');
        if (at == std::string_view::npos) return false;
        text.remove_prefix(at + 1);
    }
    return true;
}

struct Number {
    bool negative = false;
    uint64_t magnitude = 0;  // saturates
    size_t digits = 0;       // how many were read
};

// Reads an optional sign and the digits behind it from the front of the text.
Number ReadNumber(std::string_view& text) {
    Number number;
    if (!text.empty() && (text.front() == '-' || text.front() == '+')) {
        number.negative = text.front() == '-';
        text.remove_prefix(1);
    }
    for (; !text.empty() && IsDigit(text.front()); text.remove_prefix(1), ++number.digits) {
        auto digit = static_cast<uint64_t>(text.front() - '0');
        constexpr uint64_t kMax = std::numeric_limits<uint64_t>::max();
        bool fits = number.magnitude <= (kMax - digit) / 10;
        number.magnitude = fits ? number.magnitude * 10 + digit : kMax;
    }
    return number;
}

template <typename Int>
Int Clamp(const Number& number) {
    constexpr auto kMax = static_cast<uint64_t>(std::numeric_limits<Int>::max());
    if (number.negative) {
        return number.magnitude > kMax ? std::numeric_limits<Int>::min()
                                       : static_cast<Int>(-static_cast<int64_t>(number.magnitude));
    }
    return static_cast<Int>(std::min(number.magnitude, kMax));
}

template <typename Int>
Int ConvertPlain(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size()));
    return Clamp<Int>(ReadNumber(text));
}

template <typename Int>
bool ConvertChecked(std::string_view text, Int& value) {
    Number number = ReadNumber(text);
    if (number.digits == 0 || !text.empty()) return false;
    value = Clamp<Int>(number);
    return true;
}

}  // namespace

int32_t LineCount(std::string_view text) {
    return static_cast<int32_t>(std::count(text.begin(), text.end(), '\n'));
}

std::string_view RawLine(std::string_view text, int32_t n) {
    return SkipToLine(text, n) ? UpToLineFeed(text) : std::string_view();
}

std::string_view OptionalRawLine(std::string_view text, int32_t n) {
    std::string_view line = RawLine(text, n);
    return line == "\r" ? std::string_view() : line;
}

std::string_view GetLine(std::string_view text, int32_t n) {
    if (!SkipToLine(text, n)) return {};
    while (!text.empty() && IsLeadingBlank(text.front())) text.remove_prefix(1);
    return TrimView(UpToLineFeed(text));
}

bool NextLine(std::string_view& text, std::string_view& line) {
    size_t end = text.find('\n');
    if (end == std::string_view::npos) return false;
    line = GetLine(text, 1);
    text.remove_prefix(end + 1);
    return true;
}

std::string_view GetValue(std::string_view text, std::string_view name) {
    for (std::string_view line; NextLine(text, line);) {
        size_t equals = line.find('=');
        if (equals == std::string_view::npos) continue;
        if (TrimView(line.substr(0, equals)) == name) return TrimView(line.substr(equals + 1));
    }
    return {};
}

int32_t ToInt(std::string_view text) { return ConvertPlain<int32_t>(text); }

int64_t ToInt64(std::string_view text) { return ConvertPlain<int64_t>(text); }

double ToDouble(std::string_view text) {
    VyString copy(text);
    return std::strtod(copy.Terminate(), nullptr);
}

bool ParseInt(std::string_view text, int32_t& value) { return ConvertChecked(text, value); }

bool ParseInt64(std::string_view text, int64_t& value) { return ConvertChecked(text, value); }

RequestDate ParseDate(std::string_view text) {
    if (text.size() != 14) return {};
    auto part = [text](size_t at, size_t count) { return ToInt(text.substr(at, count)); };
    return {part(0, 2), part(2, 2), part(4, 4), part(8, 2), part(10, 2), part(12, 2)};
}

void AppendEscaped(VyString& result, std::string_view text) {
    for (size_t at; (at = text.find_first_of("\r\n")) != std::string_view::npos;
         text.remove_prefix(at + 1)) {
        result.Append(text.substr(0, at));
        result.Append(text[at] == '\n' ? "%0A" : "%0D");
    }
    result.Append(text);
}

VyString Escape(std::string_view text) {
    VyString result;
    AppendEscaped(result, text);
    return result;
}

VyString Unescape(std::string_view text) {
    VyString result;
    for (size_t at; (at = text.find("%0")) != std::string_view::npos;) {
        char code = at + 2 < text.size() ? text[at + 2] : '\0';
        result.Append(text.substr(0, at));
        if (code == 'A' || code == 'D') {
            result.Append(code == 'A' ? '\n' : '\r');
            text.remove_prefix(at + 3);
        } else {
            result.Append("%0");
            text.remove_prefix(at + 2);
        }
    }
    result.Append(text);
    return result;
}

}  // namespace zot
