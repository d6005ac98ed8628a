// Reads and shows bytes as hexadecimal, as in the vector files under data/.
#pragma once

#include <cstdint>
#include <span>
#include <sstream>
#include <string>
#include <vector>

namespace zot {

inline std::vector<uint8_t> FromHex(const std::string& text) {
    std::vector<uint8_t> bytes;
    for (size_t i = 0; i + 1 < text.size(); i += 2) {
        bytes.push_back(static_cast<uint8_t>(std::stoi(text.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

inline std::string ToHex(std::span<const uint8_t> bytes) {
    std::string text;
    for (uint8_t byte : bytes) {
        text += "0123456789abcdef"[byte >> 4];
        text += "0123456789abcdef"[byte & 15];
    }
    return text;
}

// The fields of a line, separated by blanks; "-" is an empty one.
inline std::vector<std::vector<uint8_t>> HexFields(const std::string& line) {
    std::vector<std::vector<uint8_t>> fields;
    std::istringstream words(line);
    for (std::string word; words >> word;) fields.push_back(FromHex(word));
    return fields;
}

}  // namespace zot
