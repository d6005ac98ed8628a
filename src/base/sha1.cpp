#include "base/sha1.h"

#include <bit>
#include <cstddef>

#include "base/block_hash.h"
#include "base/byte_order.h"
#include "base/wipe.h"

namespace zot {
namespace {

uint32_t Choose(uint32_t b, uint32_t c, uint32_t d) { return d ^ (b & (c ^ d)); }
uint32_t Parity(uint32_t b, uint32_t c, uint32_t d) { return b ^ c ^ d; }
uint32_t Majority(uint32_t b, uint32_t c, uint32_t d) { return (b & c) | (d & (b | c)); }

// The message words, of which each step needs only the latest sixteen.
struct Schedule {
    uint32_t w[16];

    uint32_t Word(int step) {
        uint32_t& word = w[step & 15];
        if (step >= 16) {
            word =
                std::rotl(w[(step - 3) & 15] ^ w[(step - 8) & 15] ^ w[(step - 14) & 15] ^ word, 1);
        }
        return word;
    }
};

using Mix = uint32_t (*)(uint32_t, uint32_t, uint32_t);

// One step; the caller rotates the roles of the five words instead of moving them.
template <Mix mix, uint32_t constant>
inline void Step(uint32_t a, uint32_t& b, uint32_t c, uint32_t d, uint32_t& e, uint32_t word) {
    e += mix(b, c, d) + constant + word + std::rotl(a, 5);
    b = std::rotl(b, 30);
}

template <Mix mix, uint32_t constant>
inline void TwentySteps(uint32_t (&s)[5], Schedule& schedule, int first) {
    auto& [a, b, c, d, e] = s;
#pragma GCC unroll 4
    for (int i = first; i < first + 20; i += 5) {
        Step<mix, constant>(a, b, c, d, e, schedule.Word(i));
        Step<mix, constant>(e, a, b, c, d, schedule.Word(i + 1));
        Step<mix, constant>(d, e, a, b, c, schedule.Word(i + 2));
        Step<mix, constant>(c, d, e, a, b, schedule.Word(i + 3));
        Step<mix, constant>(b, c, d, e, a, schedule.Word(i + 4));
    }
}

void Transform(uint32_t (&state)[5], const uint8_t* blocks, size_t count) {
    for (const uint8_t* block = blocks; count != 0; block += 64, --count) {
        Schedule schedule;
        for (size_t i = 0; i < 16; i++) schedule.w[i] = LoadBe32(block + 4 * i);
        uint32_t s[5] = {state[0], state[1], state[2], state[3], state[4]};
        TwentySteps<Choose, 0x5A827999>(s, schedule, 0);
        TwentySteps<Parity, 0x6ED9EBA1>(s, schedule, 20);
        TwentySteps<Majority, 0x8F1BBCDC>(s, schedule, 40);
        TwentySteps<Parity, 0xCA62C1D6>(s, schedule, 60);
        for (int i = 0; i < 5; i++) state[i] += s[i];
    }
}

}  // namespace

std::array<uint8_t, kSha1DigestSize> Sha1Digest(std::span<const uint8_t> data) {
    uint32_t state[5] = {0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476, 0xC3D2E1F0};
    auto transform = [&state](const uint8_t* blocks, size_t count) {
        Transform(state, blocks, count);
    };
    BlockStream<64, std::endian::big> stream;
    stream.Update(data.data(), data.size(), transform);
    stream.Finish(transform);
    std::array<uint8_t, kSha1DigestSize> digest;
    for (size_t i = 0; i < 5; i++) StoreBe32(&digest[4 * i], state[i]);
    WipeMemory(&stream, sizeof stream);
    WipeMemory(state, sizeof state);
    return digest;
}

}  // namespace zot
