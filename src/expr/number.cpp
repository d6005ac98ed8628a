#include "expr/number.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <cstdlib>

#include "base/ascii.h"
#include "expr/text_functions.h"

namespace zot {
namespace {

struct Unit {
    std::string_view text;
    double multiplier;
};

// Bytes count by 1024 and bits are eighths of them; "%", time and the rest are only labels.
constexpr Unit kUnits[] = {
    {"", 0},
    {"%", 1},
    {"ms", 1},
    {"kb", 1024},
    {"kb/s", 1024},
    {"kb/sec", 1024},
    {"mb", 1048576},
    {"mb/s", 1048576},
    {"mb/sec", 1048576},
    {"gb", 1073741824},
    {"gb/s", 1073741824},
    {"gb/sec", 1073741824},
    {"tb", 1099511627776},
    {"tb/s", 1099511627776},
    {"tb/sec", 1099511627776},
    {"kbit", 128},
    {"kbit/s", 128},
    {"kbit/sec", 128},
    {"mbit", 131072},
    {"mbit/s", 131072},
    {"mbit/sec", 131072},
    {"gbit", 134217728},
    {"gbit/s", 134217728},
    {"gbit/sec", 134217728},
    {"tbit", 137438953472},
    {"tbit/s", 137438953472},
    {"tbit/sec", 137438953472},
    {"v", 1},
    {"kv", 1000},
    {"c", 1},
    {"f", 1},
};

// Powers of ten that a double holds exactly.
constexpr std::array<double, 23> kPowersOfTen = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                                 1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                                 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
constexpr uint64_t kMaxExact = uint64_t{1} << 53;
constexpr size_t kMaxMantissaDigits = 19;

// No midpoint between two doubles has more significant digits; beyond them only "more than zero"
// counts.
constexpr size_t kSignificantDigits = 768;

// Digits with at most one ".", of any length. strtod gets them as an integer with an exponent: of
// bounded length, and without the decimal point that it takes from the locale.
double LongDecimal(std::string_view number) {
    char buffer[kSignificantDigits + 32];
    size_t used = 0;
    int64_t exponent = 0;
    bool point = false;
    bool moreThanZero = false;
    for (char c : number) {
        if (c == '.') {
            point = true;
        } else if (used == 0 && c == '0') {
            exponent -= point;
        } else if (used < kSignificantDigits) {
            buffer[used++] = c;
            exponent -= point;
        } else {
            moreThanZero |= c != '0';
            exponent += !point;
        }
    }
    if (used == 0) return 0;
    if (moreThanZero) {
        buffer[used++] = '1';
        --exponent;
    }
    buffer[used++] = 'e';
    *std::to_chars(buffer + used, buffer + sizeof buffer - 1, exponent).ptr = '\0';
    return std::strtod(buffer, nullptr);
}

// An optional sign, then digits with at most one ".": at least one character after the sign, so
// that a sign and a "." alone make 0.
bool ParseDecimal(std::string_view word, double& value) {
    bool negative = word.starts_with('-');
    if (negative || word.starts_with('+')) word.remove_prefix(1);
    if (word.empty()) return false;
    uint64_t mantissa = 0;
    size_t digits = 0;
    size_t fraction = 0;
    bool point = false;
    for (char c : word) {
        if (IsDigit(c)) {
            if (++digits <= kMaxMantissaDigits) mantissa = mantissa * 10 + uint64_t(c - '0');
            fraction += point;
        } else if (c == '.' && !point) {
            point = true;
        } else {
            return false;
        }
    }
    // Both numbers are exact, so their one division rounds as the text itself would.
    bool exact =
        digits <= kMaxMantissaDigits && mantissa <= kMaxExact && fraction < kPowersOfTen.size();
    value = exact ? static_cast<double>(mantissa) / kPowersOfTen[fraction] : LongDecimal(word);
    if (negative) value = -value;
    return true;
}

bool ParseBinary(std::string_view word, double& value) {
    if (word.size() < 2 || word.back() != 'B') return false;
    word.remove_suffix(1);
    double sum = 0;
    for (char c : word) {
        if (c != '0' && c != '1') return false;
        sum = sum * 2 + (c - '0');
    }
    value = sum;
    return true;
}

bool IsBlank(char c) { return c == ' ' || c == '\t'; }

std::string_view SkipBlanks(std::string_view text) {
    while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
    return text;
}

std::string_view FirstWord(std::string_view text) {
    return {text.data(),
            static_cast<size_t>(std::find_if(text.begin(), text.end(), IsBlank) - text.begin())};
}

// What to multiply a number with this unit by: 0 without a unit, -1 when the unit is unknown.
double MultiplierOf(std::string_view unitText) {
    for (const Unit& unit : kUnits) {
        if (std::equal(unit.text.begin(), unit.text.end(), unitText.begin(), unitText.end(),
                       [](char a, char b) { return a == LowerAscii(b); })) {
            return unit.multiplier;
        }
    }
    return -1;
}

}  // namespace

bool ParseNumber(std::string_view text, double& value) noexcept {
    text = Unquote(text);
    if (text.empty() || (text[0] != '+' && text[0] != '-' && !IsDigit(text[0]))) return false;
    std::string_view first = FirstWord(text);
    // A single word must be the whole text, without a blank after it.
    if (first.size() == text.size()) return ParseBinary(text, value) || ParseDecimal(text, value);
    double number = 0;
    if (!ParseDecimal(first, number)) return false;
    std::string_view rest = SkipBlanks(text.substr(first.size()));
    std::string_view unit = FirstWord(rest);
    if (!SkipBlanks(rest.substr(unit.size())).empty()) return false;
    double multiplier = MultiplierOf(unit);
    if (multiplier < 0.5) return false;
    value = number * multiplier;
    return true;
}

}  // namespace zot
