// Decimal numbers in texts: requests, configuration values and the command line are read by the
// same rules.
#pragma once

#include <cstdint>
#include <string_view>

namespace zot {

// Plain conversions: leading digits count, text that is no number gives 0, numbers too large for
// the type give its limit.
int32_t ToInt(std::string_view text);
int64_t ToInt64(std::string_view text);
double ToDouble(std::string_view text);

// Checked conversions: true only when the whole text is an optional sign and decimal digits;
// otherwise `value` stays as it is. Numbers too large for the type give its limit.
bool ParseInt(std::string_view text, int32_t& value);
bool ParseInt64(std::string_view text, int64_t& value);

}  // namespace zot
