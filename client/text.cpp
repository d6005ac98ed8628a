#include "client/text.h"

#include <cmath>
#include <cstdio>
#include <iterator>

#include "base/ascii.h"
#include "base/numbers.h"
#include "protocol/request_text.h"

namespace zot::client {
namespace {

// How much of the text, from its front on, is a number; 0 when it begins with none.
size_t DecimalSize(std::string_view text) {
    size_t i = text.starts_with('-') || text.starts_with('+') ? 1 : 0;
    size_t size = 0;
    for (bool point = false; i < text.size(); ++i) {
        if (IsDigit(text[i])) {
            size = i + 1;  // a point at the end does not belong to the number
        } else if (text[i] == '.' && !point) {
            point = true;
        } else {
            break;
        }
    }
    return size;
}

std::string Print(double value, int decimals) {
    char text[400];  // the largest double has 309 digits
    snprintf(text, sizeof text, "%.*f", decimals, value);
    return text;
}

}  // namespace

std::string Concat(std::initializer_list<std::string_view> parts) {
    std::string text;
    for (std::string_view part : parts) text += part;
    return text;
}

bool ParseDecimal(std::string_view text, double& value) {
    if (text.empty() || DecimalSize(text) != text.size()) return false;
    value = ToDouble(text);
    return true;
}

bool FindDecimal(std::string_view text, double& value) {
    for (size_t i = 0; i < text.size(); ++i) {
        // Digits inside a word ("web1", "a-1") are part of its name.
        if (i > 0 && (IsAlnum(text[i - 1]) || text[i - 1] == '-' || text[i - 1] == '.')) continue;
        if (size_t size = DecimalSize(text.substr(i))) {
            value = ToDouble(text.substr(i, size));
            return true;
        }
    }
    return false;
}

std::string FormatDecimal(double value, int decimals) {
    std::string text = Print(value, decimals);
    text.erase(text.find_last_not_of('0') + 1);
    if (text.ends_with('.')) text.pop_back();
    return text == "-0" ? "0" : text;
}

std::string Count(double number, std::string_view one, std::string_view many) {
    return Concat({FormatDecimal(number), " ", number == 1 ? one : many});
}

std::string FormatBytes(double bytes) {
    static constexpr const char* kUnits[] = {"B", "KiB", "MiB", "GiB", "TiB", "PiB"};
    size_t unit = 0;
    while (std::fabs(bytes) >= 1024 && unit + 1 < std::size(kUnits)) {
        bytes /= 1024;
        ++unit;
    }
    return Print(bytes, unit == 0 ? 0 : 1) + ' ' + kUnits[unit];
}

}  // namespace zot::client
