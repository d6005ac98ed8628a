#include "client/text.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "base/ascii.h"
#include "protocol/request_text.h"

namespace zot::client {
namespace {

// How many characters at the front of the text are a number; 0 when it does not begin with one.
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
    if (decimals > 0) text.erase(text.find_last_not_of('0') + 1);
    if (text.ends_with('.')) text.pop_back();
    return text == "-0" ? "0" : text;
}

std::string Count(double number, std::string_view one, std::string_view many) {
    return Concat({FormatDecimal(number), " ", number == 1 ? one : many});
}

size_t CharacterSize(std::string_view text) {
    auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    unsigned char first = byte(0);
    if (first < 0x80) return 1;
    size_t size = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || text.size() < size) return 0;
    for (size_t i = 1; i < size; ++i) {
        if ((byte(i) & 0xC0) != 0x80) return 0;
    }
    unsigned char second = byte(1);
    bool wrong = (first == 0xE0 && second < 0xA0) || (first == 0xED && second > 0x9F) ||
                 (first == 0xF0 && second < 0x90) || (first == 0xF4 && second > 0x8F);
    return wrong ? 0 : size;
}

std::string FormatSeconds(double seconds) {
    constexpr double kMinute = 60, kHour = 3600, kDay = 86400;
    double size = std::fabs(seconds);
    if (size < 1) return FormatDecimal(seconds * 1000, 0) + " ms";
    if (size < 2 * kMinute) return FormatDecimal(seconds, 1) + " s";
    if (size < 2 * kHour) return FormatDecimal(seconds / kMinute, 0) + " min";
    if (size < 2 * kDay) return FormatDecimal(seconds / kHour, 1) + " h";
    return FormatDecimal(seconds / kDay, 1) + " d";
}

namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

// ASCII controls, and those from U+0080 to U+009F, which some terminals obey too.
bool IsControl(std::string_view character) {
    auto first = static_cast<unsigned char>(character[0]);
    if (character.size() == 1) return first < 32 || first == 127;
    return character.size() == 2 && first == 0xC2 &&
           static_cast<unsigned char>(character[1]) < 0xA0;
}

void AppendVisible(std::string& result, std::string_view character, bool keepLines) {
    bool kept = keepLines && (character == "\n" || character == "\t");
    if (kept || !IsControl(character)) {
        result += character;
        return;
    }
    char escaped[8];
    snprintf(escaped, sizeof escaped, "\\x%02X", static_cast<unsigned char>(character.back()));
    result += escaped;
}

}  // namespace

std::string Visible(std::string_view text, bool keepLines) {
    std::string result;
    while (!text.empty()) {
        size_t size = CharacterSize(text);
        if (size == 0) {
            result += kReplacement;
        } else if (!(keepLines && text.starts_with("\r\n"))) {
            AppendVisible(result, text.substr(0, size), keepLines);
        }
        text.remove_prefix(std::max<size_t>(size, 1));
    }
    return result;
}

std::string ValidUtf8(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        size_t size = CharacterSize(text);
        result += size == 0 ? kReplacement : text.substr(0, size);
        text.remove_prefix(std::max<size_t>(size, 1));
    }
    return result;
}

std::string WithoutControls(std::string_view json) {
    std::string result;
    for (;;) {
        // DEL, or the first byte of one of the others.
        size_t place = json.find_first_of("\x7F\xC2");
        result += json.substr(0, place);
        if (place == std::string_view::npos) return result;
        json.remove_prefix(place);
        std::string_view character = json.substr(0, std::max<size_t>(CharacterSize(json), 1));
        char escaped[8];
        snprintf(escaped, sizeof escaped, "\\u00%02x", static_cast<uint8_t>(character.back()));
        result += IsControl(character) ? std::string_view(escaped) : character;
        json.remove_prefix(character.size());
    }
}

size_t Width(std::string_view text) {
    return static_cast<size_t>(std::count_if(text.begin(), text.end(), [](char c) {
        return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    }));
}

std::string HelpTable(std::span<const std::pair<std::string, std::string_view>> rows) {
    constexpr size_t kIndent = 26, kMargin = 80;
    std::string help;
    for (const auto& [left, right] : rows) {
        std::string line = "  " + left;
        if (line.size() + 2 > kIndent) {
            help += line + "\n";
            line.clear();
        }
        line.resize(kIndent, ' ');
        for (std::string_view rest = right; !rest.empty();) {
            size_t end = std::min(rest.find(' '), rest.size());
            if (line.size() > kIndent && line.size() + 1 + end > kMargin) {
                help += line + "\n";
                line.assign(kIndent, ' ');
            }
            if (line.size() > kIndent) line += ' ';
            line += rest.substr(0, end);
            rest.remove_prefix(std::min(end + 1, rest.size()));
        }
        help += line + "\n";
    }
    return help;
}

std::string HexText(std::span<const uint8_t> bytes) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string text;
    for (uint8_t byte : bytes) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
    }
    return text;
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
