// CRC-32 with the reflected polynomial 0xEDB88320 (ISO 3309).
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace zot {

// State of a CRC before its first byte.
constexpr uint32_t kCrc32Start = 0xffffffff;

// Returns the running state with `data` folded in. The published value is the complement of the
// last state; the inversion is left to callers that want it.
uint32_t Crc32Update(uint32_t state, std::span<const uint8_t> data);

// The same without the processor's own instructions.
uint32_t Crc32Portable(uint32_t state, const uint8_t* data, size_t size);

}  // namespace zot
