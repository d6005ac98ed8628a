#include <arm_acle.h>
#include <arm_neon.h>

#include <cstring>
#include <utility>

#include "base/platform/arm_features.h"
#include "base/platform/hash.h"
#include "base/sha2_constants.h"

namespace zot {
namespace {

// ---- CRC-32: the instructions compute exactly this polynomial

uint32_t Crc32Instructions(uint32_t state, const uint8_t* data, size_t size) {
    for (; size >= 8; size -= 8, data += 8) {
        uint64_t word;
        memcpy(&word, data, sizeof(word));
        state = __crc32d(state, word);
    }
    for (; size != 0; --size, ++data) state = __crc32b(state, *data);
    return state;
}

// ---- SHA-256

inline void FourRounds(uint32x4_t& abcd, uint32x4_t& efgh, uint32x4_t words, size_t t) {
    uint32x4_t sum = vaddq_u32(words, vld1q_u32(kSha256Constants + t));
    uint32x4_t before = abcd;
    abcd = vsha256hq_u32(abcd, efgh, sum);
    efgh = vsha256h2q_u32(efgh, before, sum);
}

void Sha256Instructions(uint32_t* state, const uint8_t* blocks, size_t count) {
    uint32x4_t abcd = vld1q_u32(state);
    uint32x4_t efgh = vld1q_u32(state + 4);
    for (; count != 0; --count, blocks += 64) {
        const uint32x4_t startAbcd = abcd;
        const uint32x4_t startEfgh = efgh;
        uint32x4_t w[4];
        for (size_t i = 0; i < 4; ++i) {
            w[i] = vreinterpretq_u32_u8(vrev32q_u8(vld1q_u8(blocks + 16 * i)));
        }
        for (size_t t = 0; t < 48; t += 16) {
            for (size_t i = 0; i < 4; ++i) {
                FourRounds(abcd, efgh, w[i], t + 4 * i);
                w[i] = vsha256su1q_u32(vsha256su0q_u32(w[i], w[(i + 1) % 4]), w[(i + 2) % 4],
                                       w[(i + 3) % 4]);
            }
        }
        for (size_t i = 0; i < 4; ++i) FourRounds(abcd, efgh, w[i], 48 + 4 * i);
        abcd = vaddq_u32(abcd, startAbcd);
        efgh = vaddq_u32(efgh, startEfgh);
    }
    vst1q_u32(state, abcd);
    vst1q_u32(state + 4, efgh);
}

// ---- SHA-512

// Rounds 2i and 2i + 1 of sixteen. v holds AB, CD, EF and GH at round 0; every two rounds the names
// move down by one register instead of the words.
template <size_t i>
[[gnu::always_inline]] inline void TwoRounds(uint64x2_t (&v)[4], uint64x2_t words,
                                             const uint64_t* constants) {
    const uint64x2_t ab = v[(8 - i) % 4];
    uint64x2_t& cd = v[(9 - i) % 4];
    const uint64x2_t ef = v[(10 - i) % 4];
    uint64x2_t& gh = v[(11 - i) % 4];
    uint64x2_t sum = vaddq_u64(words, vld1q_u64(constants + 2 * i));
    sum = vaddq_u64(vextq_u64(sum, sum, 1), gh);
    uint64x2_t next = vsha512hq_u64(sum, vextq_u64(ef, gh, 1), vextq_u64(cd, ef, 1));
    gh = vsha512h2q_u64(next, cd, ab);
    cd = vaddq_u64(cd, next);
}

// Words t + 16 and t + 17 from w0, which holds t and t + 1, and from those that follow.
inline uint64x2_t NextTwoWords(uint64x2_t w0, uint64x2_t w1, uint64x2_t w4, uint64x2_t w5,
                               uint64x2_t w7) {
    return vsha512su1q_u64(vsha512su0q_u64(w0, w1), w7, vextq_u64(w4, w5, 1));
}

template <size_t... i>
[[gnu::always_inline]] inline void Rounds(uint64x2_t (&v)[4], const uint64x2_t (&w)[8],
                                          const uint64_t* constants, std::index_sequence<i...>) {
    (TwoRounds<i>(v, w[i], constants), ...);
}

template <size_t... i>
[[gnu::always_inline]] inline void RoundsAndWords(uint64x2_t (&v)[4], uint64x2_t (&w)[8],
                                                  const uint64_t* constants,
                                                  std::index_sequence<i...>) {
    ((TwoRounds<i>(v, w[i], constants),
      w[i] = NextTwoWords(w[i], w[(i + 1) % 8], w[(i + 4) % 8], w[(i + 5) % 8], w[(i + 7) % 8])),
     ...);
}

void Sha512Instructions(uint64_t* state, const uint8_t* blocks, size_t count) {
    constexpr auto kIndexes = std::make_index_sequence<8>();
    for (; count != 0; --count, blocks += 128) {
        uint64x2_t w[8];
        uint64x2_t v[4];
        for (size_t i = 0; i < 8; ++i) {
            w[i] = vreinterpretq_u64_u8(vrev64q_u8(vld1q_u8(blocks + 16 * i)));
        }
        for (size_t i = 0; i < 4; ++i) v[i] = vld1q_u64(state + 2 * i);
        for (size_t t = 0; t < 64; t += 16) RoundsAndWords(v, w, kSha512Constants + t, kIndexes);
        Rounds(v, w, kSha512Constants + 64, kIndexes);
        for (size_t i = 0; i < 4; ++i) {
            vst1q_u64(state + 2 * i, vaddq_u64(vld1q_u64(state + 2 * i), v[i]));
        }
    }
}

constexpr unsigned long kHasSha256 = 1UL << 6;
constexpr unsigned long kHasCrc32 = 1UL << 7;
constexpr unsigned long kHasSha512 = 1UL << 21;

}  // namespace

HashFunctions AcceleratedHashes() {
    const unsigned long features = ArmFeatures();
    HashFunctions functions;
    if ((features & kHasCrc32) != 0) functions.crc32 = Crc32Instructions;
    if ((features & kHasSha256) != 0) functions.sha256 = Sha256Instructions;
    if ((features & kHasSha512) != 0) functions.sha512 = Sha512Instructions;
    return functions;
}

}  // namespace zot
