// Reads a request: positional lines, name=value lines and flags. Everything returned is a view of
// the request text. Numbers and escapes follow the usual rules (base/numbers.h, base/escaping.h).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "base/escaping.h"
#include "base/numbers.h"
#include "base/vystring.h"

namespace zot {

// Line n (from 1) untrimmed, without its line feed; empty beyond the last line.
std::string_view RawLine(std::string_view text, int32_t n);

// RawLine for an optional last parameter: the carriage return that ends a request does not count as
// one, although it is alone on the next line when the parameter before is the last.
std::string_view OptionalRawLine(std::string_view text, int32_t n);

// Line n (from 1) without blanks at its ends. An empty or blank line n gives the next line that is
// not blank: skipping the leading blanks crosses line feeds, and optional parameters rely on that.
std::string_view GetLine(std::string_view text, int32_t n);

// GetLine for a required parameter: an empty line n is empty, not the next one.
inline std::string_view OwnLine(std::string_view text, int32_t n) {
    return GetLine(RawLine(text, n), 1);
}

// Takes the next line that ends with a line feed off the front of the text and trims it like
// GetLine, but gives each line only once: the blank lines before it, for each of which GetLine
// would give it again, go with it. False when only blank lines are left.
bool NextLine(std::string_view& text, std::string_view& line);

// True only for exactly "1".
inline bool IsFlagSet(std::string_view text) { return text == "1"; }

// A date as requests carry it: months count from 1 and the year is written in full, unlike in the
// broken-down time that Reply::AppendDate takes.
struct RequestDate {
    int32_t day = 0, month = 0, year = 0, hour = 0, minute = 0, second = 0;
};
// Reads DDMMYYYYhhmmss; any other length gives all fields 0.
RequestDate ParseDate(std::string_view text);

}  // namespace zot
