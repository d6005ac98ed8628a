// SHA-1 (FIPS 180-1), which turns a key string into a cipher key.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace zot {

constexpr size_t kSha1DigestSize = 20;

// The digest of the data, which may be empty. Leaves nothing of it in memory: keys are hashed here.
std::array<uint8_t, kSha1DigestSize> Sha1Digest(std::span<const uint8_t> data);

}  // namespace zot
