// Decimal numbers in text: requests, configuration values and the command line all follow these
// rules.
#pragma once

#include <cstdint>
#include <string_view>

namespace zot {

// Plain conversions: leading digits count, text that is not a number gives 0, and a number too
// large for the type gives its limit.
int32_t ToInt(std::string_view text);
int64_t ToInt64(std::string_view text);
double ToDouble(std::string_view text);

// Checked conversions: true only when the whole text is an optional sign and decimal digits;
// otherwise `value` keeps what it had. A number too large for the type gives its limit.
bool ParseInt(std::string_view text, int32_t& value);
bool ParseInt64(std::string_view text, int64_t& value);

}  // namespace zot
