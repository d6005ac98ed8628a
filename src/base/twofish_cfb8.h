// Twofish in 8-bit cipher feedback (NIST SP 800-38A): every byte costs a block encryption, of which
// only the first byte is used.
#pragma once

#include <cstdint>
#include <span>

#include "base/twofish.h"

namespace zot {

// Both take a prepared key, the 16 bytes of the initial shift register and any number of bytes, and
// write as many to `out`, which may be where `in` begins but must not overlap it otherwise.
void TwofishCfb8Encrypt(const TwofishKey& key, const uint8_t* initial, std::span<const uint8_t> in,
                        uint8_t* out);
void TwofishCfb8Decrypt(const TwofishKey& key, const uint8_t* initial, std::span<const uint8_t> in,
                        uint8_t* out);

}  // namespace zot
