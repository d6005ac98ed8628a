// Single values of replies: turns texts as agents write them into values with a type and a unit.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "client/replies.h"

namespace zot::client {

// How a line, or a parameter of the request, becomes a value.
enum class Kind {
    kText,     // unchanged
    kEscaped,  // with its line breaks restored
    kLines,    // the same, as a list
    kInteger,
    kDecimal,
    kFlag,
    kBytes,
    kPercent,
    kMilliseconds,
    kMinutes,
    kLocalTime,  // DDMMYYYYhhmmss
    kAlgorithm,  // the number of a hash
    kMode,       // the number of a comparison
};

// Puts the value, and the unit that belongs to the kind, into the field; false when the text is not
// of that kind.
bool Convert(Kind kind, std::string_view text, Field& field);

// The lines of a text without their ends.
std::vector<std::string> LinesOf(std::string_view text);

}  // namespace zot::client
