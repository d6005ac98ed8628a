#include "base/crc32.h"

#include <array>

#include "base/byte_order.h"
#include "base/platform/hash.h"

namespace zot {
namespace {

using Table = std::array<std::array<uint32_t, 256>, 8>;

// Row n holds the effect of a byte that n further bytes follow, so that eight bytes can be looked
// up at once.
constexpr Table MakeTable() {
    Table table{};
    for (uint32_t byte = 0; byte < 256; ++byte) {
        uint32_t crc = byte;
        for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ ((crc & 1) != 0 ? 0xedb88320 : 0);
        table[0][byte] = crc;
    }
    for (size_t row = 1; row < 8; ++row) {
        for (size_t byte = 0; byte < 256; ++byte) {
            uint32_t crc = table[row - 1][byte];
            table[row][byte] = (crc >> 8) ^ table[0][crc & 0xff];
        }
    }
    return table;
}

constexpr Table kTable = MakeTable();

}  // namespace

uint32_t Crc32Portable(uint32_t state, const uint8_t* data, size_t size) {
    for (; size >= 8; size -= 8, data += 8) {
        uint32_t low = LoadLe32(data) ^ state;
        uint32_t high = LoadLe32(data + 4);
        state = kTable[7][low & 0xff] ^ kTable[6][low >> 8 & 0xff] ^ kTable[5][low >> 16 & 0xff] ^
                kTable[4][low >> 24] ^ kTable[3][high & 0xff] ^ kTable[2][high >> 8 & 0xff] ^
                kTable[1][high >> 16 & 0xff] ^ kTable[0][high >> 24];
    }
    for (; size != 0; --size, ++data) state = (state >> 8) ^ kTable[0][(state ^ *data) & 0xff];
    return state;
}

uint32_t Crc32Update(uint32_t state, std::span<const uint8_t> data) {
    static const Crc32Function accelerated = AcceleratedHashes().crc32;
    return (accelerated != nullptr ? accelerated : Crc32Portable)(state, data.data(), data.size());
}

}  // namespace zot
