// The packets' length fields: unsigned, least significant byte first.
#pragma once

#include <cstdint>

namespace zot {

// Writes the `digits` (0 to 4) low-order bytes of the value to `out`. Any other number of digits
// fails an assertion.
void EncodeLength(uint32_t value, int digits, uint8_t* out);

// Reads a field of 4, 2 or 1 bytes; 0 and 3 digits give 0. Any other number fails an assertion.
uint32_t DecodeLength(const uint8_t* bytes, int digits);

}  // namespace zot
