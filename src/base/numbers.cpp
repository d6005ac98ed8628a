#include "base/numbers.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

#include "base/ascii.h"
#include "base/vystring.h"

namespace zot {
namespace {

struct Number {
    bool negative = false;
    uint64_t magnitude = 0;  // saturates
    size_t digits = 0;       // how many were read
};

// Reads an optional sign and the digits after it from the front of the text.
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

int32_t ToInt(std::string_view text) { return ConvertPlain<int32_t>(text); }

int64_t ToInt64(std::string_view text) { return ConvertPlain<int64_t>(text); }

double ToDouble(std::string_view text) {
    VyString copy(text);
    return std::strtod(copy.Terminate(), nullptr);
}

bool ParseInt(std::string_view text, int32_t& value) { return ConvertChecked(text, value); }

bool ParseInt64(std::string_view text, int64_t& value) { return ConvertChecked(text, value); }

}  // namespace zot
