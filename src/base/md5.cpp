#include "base/md5.h"

#include <cstring>
#include <utility>

#include "base/byte_order.h"

namespace zot {
namespace {

constexpr uint32_t kSine[64] = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391};
constexpr int kShift[4][4] = {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};
// Word used by step i of a round: (factor * i + start) mod 16.
constexpr size_t kWordFactor[4] = {1, 5, 3, 7};
constexpr size_t kWordStart[4] = {0, 1, 5, 0};

// Keeps the compiler from moving the additions that made `sum` past those that follow.
[[gnu::always_inline]] inline void Settle(uint32_t& sum) { asm("" : "+r"(sum)); }

// One of the 64 steps. Each waits for `b` of the step before, so the speed of MD5 is the number of
// operations between `b` and the new `a`: whatever does not need `b` is added first.
template <size_t step>
[[gnu::always_inline]] inline void Step(uint32_t (&v)[4], const uint8_t* block) {
    constexpr size_t kRound = step / 16;
    constexpr size_t kWord = (kWordFactor[kRound] * (step % 16) + kWordStart[kRound]) % 16;
    uint32_t& a = v[(64 - step) % 4];
    const uint32_t b = v[(65 - step) % 4];
    const uint32_t c = v[(66 - step) % 4];
    const uint32_t d = v[(67 - step) % 4];
    uint32_t sum = a + LoadLe32(block + 4 * kWord) + kSine[step];
    if constexpr (kRound != 1) Settle(sum);
    if constexpr (kRound == 0) {
        sum += ((c ^ d) & b) ^ d;
    } else if constexpr (kRound == 1) {
        // The two halves share no bit, so adding them is the same as joining them.
        sum += c & ~d;
        Settle(sum);
        sum += b & d;
    } else if constexpr (kRound == 2) {
        sum += (c ^ d) ^ b;
    } else {
        sum += (b | ~d) ^ c;
    }
    a = std::rotl(sum, kShift[kRound][step % 4]) + b;
}

template <size_t... step>
[[gnu::always_inline]] inline void Steps(uint32_t (&v)[4], const uint8_t* block,
                                         std::index_sequence<step...>) {
    (Step<step>(v, block), ...);
}

void Compress(uint32_t* state, const uint8_t* blocks, size_t count) {
    uint32_t v[4] = {state[0], state[1], state[2], state[3]};
    for (; count != 0; --count, blocks += 64) {
        const uint32_t start[4] = {v[0], v[1], v[2], v[3]};
        Steps(v, blocks, std::make_index_sequence<64>());
        for (size_t i = 0; i < 4; ++i) v[i] += start[i];
    }
    memcpy(state, v, sizeof(v));
}

}  // namespace

void Md5::Init() {
    state_[0] = 0x67452301;
    state_[1] = 0xefcdab89;
    state_[2] = 0x98badcfe;
    state_[3] = 0x10325476;
    stream_.Reset();
}

void Md5::Update(std::span<const uint8_t> data) {
    stream_.Update(data.data(), data.size(), [this](const uint8_t* blocks, size_t count) {
        Compress(state_, blocks, count);
    });
}

void Md5::Update(const void* data, size_t size) {
    Update(std::span(static_cast<const uint8_t*>(data), size));
}

void Md5::Final(uint8_t digest[kDigestSize]) {
    stream_.Finish(
        [this](const uint8_t* blocks, size_t count) { Compress(state_, blocks, count); });
    for (size_t i = 0; i < 4; ++i) StoreLe32(digest + 4 * i, state_[i]);
}

std::array<uint8_t, Md5::kDigestSize> Md5Digest(const void* data, size_t size) {
    std::array<uint8_t, Md5::kDigestSize> digest;
    Md5 md5;
    md5.Update(data, size);
    md5.Final(digest.data());
    return digest;
}

}  // namespace zot
