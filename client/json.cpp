#include "client/json.h"

#include <cstdio>
#include <string_view>
#include <vector>

namespace zot::client {
namespace {

constexpr std::string_view kReplacement = "\\ufffd";

// The length of the character at the front, 0 when it is not well-formed (RFC 3629): cut off, too
// long for its value, a surrogate, or beyond U+10FFFF.
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

void AppendString(std::string& json, std::string_view text) {
    json += '"';
    while (!text.empty()) {
        size_t size = CharacterSize(text);
        char c = text[0];
        if (size == 0) {
            json += kReplacement;
            size = 1;
        } else if (static_cast<unsigned char>(c) < 0x20) {
            char escaped[8];
            snprintf(escaped, sizeof escaped, "\\u%04x", static_cast<unsigned>(c));
            json += escaped;
        } else {
            if (c == '"' || c == '\\') json += '\\';
            json += text.substr(0, size);
        }
        text.remove_prefix(size);
    }
    json += '"';
}

}  // namespace

std::string AnswerAsJson(const Answer& answer) {
    std::string json = "{\"code\":";
    AppendString(json, answer.code);
    json += ",\"values\":[";
    const char* separator = "";
    for (const std::string& line : answer.lines) {
        json += separator;
        AppendString(json, line);
        separator = ",";
    }
    return json += "]}";
}

}  // namespace zot::client
