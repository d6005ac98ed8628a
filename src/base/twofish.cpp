#include "base/twofish.h"

#include <array>
#include <atomic>
#include <bit>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/byte_order.h"
#include "base/twofish_internal.h"

namespace zot {
namespace {

using ByteTable = std::array<uint8_t, 256>;
using WordTable = std::array<uint32_t, 256>;

// The 4-bit permutations from which the definition builds q0 and q1.
constexpr uint8_t kNibbles[2][4][16] = {{{8, 1, 7, 13, 6, 15, 3, 2, 0, 11, 5, 9, 14, 12, 10, 4},
                                         {14, 12, 11, 8, 1, 2, 3, 5, 15, 4, 10, 6, 7, 0, 9, 13},
                                         {11, 10, 5, 14, 6, 13, 9, 0, 12, 8, 15, 3, 2, 4, 7, 1},
                                         {13, 7, 15, 4, 1, 2, 6, 14, 9, 11, 3, 0, 8, 5, 12, 10}},
                                        {{2, 8, 11, 13, 15, 7, 6, 14, 3, 1, 9, 4, 0, 10, 12, 5},
                                         {1, 14, 2, 11, 4, 12, 3, 7, 6, 13, 10, 5, 15, 9, 0, 8},
                                         {4, 12, 7, 5, 1, 6, 9, 10, 0, 14, 13, 8, 2, 11, 3, 15},
                                         {11, 9, 5, 1, 12, 3, 13, 14, 6, 4, 7, 15, 2, 0, 8, 10}}};

constexpr uint32_t MixNibbles(uint32_t a, uint32_t b) {
    return (a ^ (b >> 1 | b << 3) ^ a << 3) & 15;
}

constexpr ByteTable BuildQ(const uint8_t (&t)[4][16]) {
    ByteTable table{};
    for (uint32_t x = 0; x < 256; x++) {
        uint32_t a = t[0][x >> 4 ^ (x & 15)];
        uint32_t b = t[1][MixNibbles(x >> 4, x & 15)];
        table[x] = static_cast<uint8_t>(t[3][MixNibbles(a, b)] << 4 | t[2][a ^ b]);
    }
    return table;
}

constexpr ByteTable kQ[2] = {BuildQ(kNibbles[0]), BuildQ(kNibbles[1])};

// Which q a byte of each column passes just before it meets key word 0, 1, 2 and 3, and which one
// it passes last, before the MDS matrix.
constexpr size_t kQBeforeKey[4][4] = {{0, 0, 1, 1}, {0, 1, 0, 1}, {1, 1, 0, 0}, {1, 0, 0, 1}};
constexpr size_t kQBeforeMatrix[4] = {1, 0, 1, 0};

// The word whose bytes are those of `column` times `x` in GF(2^8) modulo `polynomial`.
constexpr uint32_t MultiplyColumn(uint32_t column, uint32_t x, uint32_t polynomial) {
    uint32_t result = 0;
    for (uint32_t shift = 0; shift < 32; shift += 8) {
        uint32_t product = 0;
        uint32_t a = column >> shift & 255;
        for (uint32_t b = x; b != 0; b >>= 1) {
            if (b & 1) product ^= a;
            a = a << 1 ^ (a & 128 ? polynomial : 0);
        }
        result |= product << shift;
    }
    return result;
}

// Each column of the MDS matrix times the output of the last q.
constexpr std::array<WordTable, 4> BuildMatrix() {
    constexpr uint32_t kColumns[4] = {0xEFEF5B01, 0x015BEFEF, 0xEF01EF5B, 0x5BEF015B};
    std::array<WordTable, 4> tables{};
    for (size_t column = 0; column < 4; column++) {
        for (size_t x = 0; x < 256; x++) {
            uint32_t y = kQ[kQBeforeMatrix[column]][x];
            tables[column][x] = MultiplyColumn(kColumns[column], y, 0x169);
        }
    }
    return tables;
}

// The Reed-Solomon code as a division: what its generator polynomial takes off for each top byte.
constexpr WordTable BuildReedSolomon() {
    WordTable table{};
    for (uint32_t x = 0; x < 256; x++) table[x] = MultiplyColumn(0xA402A401, x, 0x14D);
    return table;
}

// Built by the compiler, so that no start-up time goes into them and nothing can write to them.
constexpr std::array<WordTable, 4> kMatrix = BuildMatrix();
constexpr WordTable kReedSolomon = BuildReedSolomon();

std::atomic<bool> initialised = false;

uint32_t ReedSolomon(const uint8_t* bytes) {
    uint32_t remainder = LoadLe32(bytes + 4);
    for (int i = 0; i < 4; i++) remainder = remainder << 8 ^ kReedSolomon[remainder >> 24];
    remainder ^= LoadLe32(bytes);
    for (int i = 0; i < 4; i++) remainder = remainder << 8 ^ kReedSolomon[remainder >> 24];
    return remainder;
}

constexpr uint32_t Byte(uint64_t word, size_t index) { return word >> (8 * index) & 255; }

// The rest of h for one byte that has passed the first q and key word `words` - 1.
template <size_t words, size_t column>
inline uint32_t FinishColumn(uint32_t y, const uint32_t* key) {
    if constexpr (words > 1) {
        y = kQ[kQBeforeKey[words - 2][column]][y] ^ Byte(key[words - 2], column);
        return FinishColumn<words - 1, column>(y, key);
    } else {
        return kMatrix[column][y];
    }
}

template <size_t words, size_t column>
inline uint32_t Column(size_t x, const uint32_t* key) {
    uint32_t y = kQ[kQBeforeKey[words - 1][column]][x] ^ Byte(key[words - 1], column);
    return FinishColumn<words, column>(y, key);
}

// The function h of a word with four equal bytes.
template <size_t words>
inline uint32_t H(size_t x, const uint32_t* key) {
    return Column<words, 0>(x, key) ^ Column<words, 1>(x, key) ^ Column<words, 2>(x, key) ^
           Column<words, 3>(x, key);
}

template <size_t words, size_t column>
void FillSBox(uint32_t* sBox, const uint32_t* key) {
    // The first q is read in order, so eight bytes of it meet the key at a time. A local copy of
    // the key tells the compiler that the stores leave it alone.
    const uint32_t k[4] = {key[0], key[1], words > 2 ? key[2] : 0, words > 3 ? key[3] : 0};
    const uint8_t* q = kQ[kQBeforeKey[words - 1][column]].data();
    const uint64_t first = Byte(k[words - 1], column) * uint64_t{0x0101010101010101};
    for (size_t x = 0; x < 256; x += 8) {
        uint64_t y = LoadLe64(q + x) ^ first;
        for (size_t i = 0; i < 8; i++) {
            sBox[x + i] = FinishColumn<words, column>(Byte(y, i), k);
        }
    }
}

template <size_t words>
void Expand(const uint8_t* key, TwofishSchedule& schedule) {
    uint32_t even[words];
    uint32_t odd[words];
    uint32_t sKey[words];
    for (size_t i = 0; i < words; i++) {
        even[i] = LoadLe32(key + 8 * i);
        odd[i] = LoadLe32(key + 8 * i + 4);
        sKey[words - 1 - i] = ReedSolomon(key + 8 * i);
    }
    for (size_t i = 0; i < 40; i += 2) {
        uint32_t a = H<words>(i, even);
        uint32_t b = std::rotl(H<words>(i + 1, odd), 8);
        schedule.subkeys[i] = a + b;
        schedule.subkeys[i + 1] = std::rotl(a + 2 * b, 9);
    }
    FillSBox<words, 0>(schedule.sBox[0], sKey);
    FillSBox<words, 1>(schedule.sBox[1], sKey);
    FillSBox<words, 2>(schedule.sBox[2], sKey);
    FillSBox<words, 3>(schedule.sBox[3], sKey);
}

// Undoes TwofishRound.
inline void InverseRound(const TwofishSchedule& key, int round, uint32_t a, uint32_t b, uint32_t& c,
                         uint32_t& d) {
    uint32_t t1 = TwofishG1(key, b);
    uint32_t t0 = TwofishG0(key, a) + t1;
    c = std::rotl(c, 1) ^ (t0 + key.subkeys[8 + 2 * round]);
    d = std::rotr(d ^ (t0 + t1 + key.subkeys[9 + 2 * round]), 1);
}

}  // namespace

void TwofishFatal(const char* message) {
    fprintf(stderr, "\nTwofish fatal error: %s\nProcess terminated\n", message);
    exit(3);
}

void TwofishInitialise() {
    initialised = true;
    TwofishSelfTest({.prepare = [](TwofishKey& key, auto bytes) { key.Prepare(bytes); },
                     .encrypt = [](const TwofishKey& key, const uint8_t* in,
                                   uint8_t* out) { key.EncryptBlock(in, out); },
                     .decrypt = [](const TwofishKey& key, const uint8_t* in,
                                   uint8_t* out) { key.DecryptBlock(in, out); }});
}

void TwofishExpandKey(std::span<const uint8_t> key, TwofishSchedule& schedule) {
    switch (key.size()) {
        case 16:
            return Expand<2>(key.data(), schedule);
        case 24:
            return Expand<3>(key.data(), schedule);
        case 32:
            return Expand<4>(key.data(), schedule);
        default:
            TwofishFatal("Twofish h(): Illegal argument");
    }
}

void TwofishKey::Prepare(std::span<const uint8_t> key) {
    if (!initialised) TwofishFatal("Twofish implementation was not initialised.");
    if (key.size() > kTwofishMaxKeySize) TwofishFatal("Twofish_prepare_key: illegal key length");
    uint8_t padded[kTwofishMaxKeySize] = {};
    if (!key.empty()) memcpy(padded, key.data(), key.size());
    size_t size = key.size() <= 16 ? 16 : key.size() <= 24 ? 24 : 32;
    TwofishExpandKey({padded, size}, schedule_);
    WipeMemory(padded, sizeof(padded));
}

void TwofishKey::EncryptBlock(const uint8_t* in, uint8_t* out) const {
    const uint32_t* k = schedule_.subkeys;
    uint32_t a = LoadLe32(in) ^ k[0];
    uint32_t b = LoadLe32(in + 4) ^ k[1];
    uint32_t c = LoadLe32(in + 8) ^ k[2];
    uint32_t d = LoadLe32(in + 12) ^ k[3];
    for (int round = 0; round < 16; round += 2) {
        TwofishRound(schedule_, round, a, b, c, d);
        TwofishRound(schedule_, round + 1, c, d, a, b);
    }
    StoreLe32(out, c ^ k[4]);
    StoreLe32(out + 4, d ^ k[5]);
    StoreLe32(out + 8, a ^ k[6]);
    StoreLe32(out + 12, b ^ k[7]);
}

void TwofishKey::DecryptBlock(const uint8_t* in, uint8_t* out) const {
    const uint32_t* k = schedule_.subkeys;
    uint32_t c = LoadLe32(in) ^ k[4];
    uint32_t d = LoadLe32(in + 4) ^ k[5];
    uint32_t a = LoadLe32(in + 8) ^ k[6];
    uint32_t b = LoadLe32(in + 12) ^ k[7];
    for (int round = 14; round >= 0; round -= 2) {
        InverseRound(schedule_, round + 1, c, d, a, b);
        InverseRound(schedule_, round, a, b, c, d);
    }
    StoreLe32(out, a ^ k[0]);
    StoreLe32(out + 4, b ^ k[1]);
    StoreLe32(out + 8, c ^ k[2]);
    StoreLe32(out + 12, d ^ k[3]);
}

}  // namespace zot
