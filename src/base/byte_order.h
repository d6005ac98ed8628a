// Little- and big-endian loads and stores at any alignment. Compilers turn each into one move.
#pragma once

#include <cstdint>

namespace zot {

inline uint32_t LoadLe32(const uint8_t* p) {
    return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 |
           static_cast<uint32_t>(p[2]) << 16 | static_cast<uint32_t>(p[3]) << 24;
}

inline uint64_t LoadLe64(const uint8_t* p) {
    return LoadLe32(p) | static_cast<uint64_t>(LoadLe32(p + 4)) << 32;
}

inline uint32_t LoadBe32(const uint8_t* p) {
    return static_cast<uint32_t>(p[0]) << 24 | static_cast<uint32_t>(p[1]) << 16 |
           static_cast<uint32_t>(p[2]) << 8 | static_cast<uint32_t>(p[3]);
}

inline uint64_t LoadBe64(const uint8_t* p) {
    return static_cast<uint64_t>(LoadBe32(p)) << 32 | LoadBe32(p + 4);
}

inline void StoreLe32(uint8_t* p, uint32_t value) {
    for (int i = 0; i < 4; i++) p[i] = static_cast<uint8_t>(value >> (8 * i));
}

inline void StoreLe64(uint8_t* p, uint64_t value) {
    for (int i = 0; i < 8; i++) p[i] = static_cast<uint8_t>(value >> (8 * i));
}

inline void StoreBe32(uint8_t* p, uint32_t value) {
    for (int i = 0; i < 4; i++) p[i] = static_cast<uint8_t>(value >> (24 - 8 * i));
}

inline void StoreBe64(uint8_t* p, uint64_t value) {
    for (int i = 0; i < 8; i++) p[i] = static_cast<uint8_t>(value >> (56 - 8 * i));
}

}  // namespace zot
