#include "client/json.h"

#include <cstdio>
#include <string_view>
#include <vector>

#include "client/text.h"

namespace zot::client {
namespace {

constexpr std::string_view kReplacement = "\\ufffd";

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
