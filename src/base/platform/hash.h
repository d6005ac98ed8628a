// The file hashes in the processor's own instructions. One file per kind of processor implements
// this, chosen by the build; elsewhere the portable code in crc32 and sha2 serves.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zot {

// Takes the running CRC and returns it with `size` more bytes folded in.
using Crc32Function = uint32_t (*)(uint32_t state, const uint8_t* data, size_t size);
// Each takes the eight state words and `count` whole blocks of 64 or 128 bytes.
using Sha256Function = void (*)(uint32_t* state, const uint8_t* blocks, size_t count);
using Sha512Function = void (*)(uint64_t* state, const uint8_t* blocks, size_t count);

struct HashFunctions {
    Crc32Function crc32 = nullptr;
    Sha256Function sha256 = nullptr;
    Sha512Function sha512 = nullptr;
};

// The accelerated functions that the running processor can execute; null where it has none.
// Each call asks the processor again: callers keep the answer.
HashFunctions AcceleratedHashes();

}  // namespace zot
