// The inside of Twofish: the round, for modes of operation that unroll it themselves, and the
// self-test with replaceable parts, so that a test can provoke each of its failures.
#pragma once

#include <bit>
#include <cstdint>
#include <span>

#include "base/twofish.h"

namespace zot {

// Prints the message to standard error and ends the process with exit code 3.
[[noreturn]] void TwofishFatal(const char* message);

// Expands a key of exactly 16, 24 or 32 bytes; any other size is fatal.
void TwofishExpandKey(std::span<const uint8_t> key, TwofishSchedule& schedule);

struct TwofishFunctions {
    void (*prepare)(TwofishKey& key, std::span<const uint8_t> bytes);
    void (*encrypt)(const TwofishKey& key, const uint8_t* in, uint8_t* out);
    void (*decrypt)(const TwofishKey& key, const uint8_t* in, uint8_t* out);
};

// Known answers, iterated sequences and odd-sized keys, in this order. A failure is fatal.
void TwofishSelfTest(const TwofishFunctions& functions);

inline uint32_t TwofishG0(const TwofishSchedule& key, uint32_t x) {
    uint32_t y = key.sBox[0][x & 255] ^ key.sBox[1][x >> 8 & 255];
    y ^= key.sBox[2][x >> 16 & 255];
    return y ^ key.sBox[3][x >> 24];
}

// G0 of the word rotated left by eight bits, with the rotation absorbed by the table choice.
inline uint32_t TwofishG1(const TwofishSchedule& key, uint32_t x) {
    uint32_t y = key.sBox[1][x & 255] ^ key.sBox[2][x >> 8 & 255];
    y ^= key.sBox[3][x >> 16 & 255];
    return y ^ key.sBox[0][x >> 24];
}

// One round: (a, b) stay, (c, d) change. The caller swaps the pairs by swapping the arguments.
// `b` is known a little before `a`, so the subkeys are added to what comes from `b`.
inline void TwofishRound(const TwofishSchedule& key, int round, uint32_t a, uint32_t b, uint32_t& c,
                         uint32_t& d) {
    uint32_t t1 = TwofishG1(key, b);
    uint32_t t0 = TwofishG0(key, a);
    c = std::rotr(c ^ (t0 + (t1 + key.subkeys[8 + 2 * round])), 1);
    d = std::rotl(d, 1) ^ (t0 + (2 * t1 + key.subkeys[9 + 2 * round]));
}

}  // namespace zot
