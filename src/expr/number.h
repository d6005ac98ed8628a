// How the condition language reads numbers: whole, decimal, binary ("101B") and with a unit ("10
// kb"). Uses no locale and allocates nothing.
#pragma once

#include <string_view>

namespace zot {

// Reads a number from a text that may be in quotes; false if it is not one. A decimal number gives
// the nearest double, which is infinite when the number is too large for one.
bool ParseNumber(std::string_view text, double& value) noexcept;

}  // namespace zot
