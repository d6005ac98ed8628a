#include "base/twofish_cfb8.h"

#include <algorithm>
#include <cstddef>

#include "base/byte_order.h"
#include "base/twofish_internal.h"

namespace zot {
namespace {

// The shift register, first byte lowest.
struct Register {
    uint64_t low;
    uint64_t high;

    explicit Register(const uint8_t* bytes) : low(LoadLe64(bytes)), high(LoadLe64(bytes + 8)) {}

    void Push(uint8_t cipher) {
        low = low >> 8 | high << 56;
        high = high >> 8 | static_cast<uint64_t>(cipher) << 56;
    }
};

// Several blocks, word by word, so that the compiler keeps them in registers.
template <size_t count>
struct Blocks {
    uint32_t a[count];
    uint32_t b[count];
    uint32_t c[count];
    uint32_t d[count];
};

// Leaves the first byte of each encrypted block in `c`; the input already carries the whitening.
// The first output word is complete after round 14, so round 15 is never needed.
template <size_t count>
inline void EncryptFirstBytes(const TwofishSchedule& key, Blocks<count>& blocks) {
    auto& [a, b, c, d] = blocks;
#pragma GCC unroll 7
    for (int round = 0; round < 14; round += 2) {
        for (size_t i = 0; i < count; i++) TwofishRound(key, round, a[i], b[i], c[i], d[i]);
        for (size_t i = 0; i < count; i++) TwofishRound(key, round + 1, c[i], d[i], a[i], b[i]);
    }
    for (size_t i = 0; i < count; i++) {
        TwofishRound(key, 14, a[i], b[i], c[i], d[i]);
        c[i] ^= key.subkeys[4];
    }
}

}  // namespace

void TwofishCfb8Encrypt(const TwofishKey& key, const uint8_t* initial, std::span<const uint8_t> in,
                        uint8_t* out) {
    const TwofishSchedule& schedule = key.Schedule();
    const uint32_t* k = schedule.subkeys;
    // The newest byte stays out of the register for one turn: what does not depend on it, which is
    // the first round and half of the second, then overlaps with the block that computes it.
    Register shift(initial);
    uint8_t newest = initial[15];
    shift.high = shift.high << 8 >> 8;
    for (size_t i = 0; i < in.size(); i++) {
        Blocks<1> block;
        block.a[0] = static_cast<uint32_t>(shift.low) ^ k[0];
        block.b[0] = static_cast<uint32_t>(shift.low >> 32) ^ k[1];
        block.c[0] = static_cast<uint32_t>(shift.high) ^ k[2];
        block.d[0] =
            static_cast<uint32_t>(shift.high >> 32) ^ k[3] ^ static_cast<uint32_t>(newest) << 24;
        EncryptFirstBytes(schedule, block);
        shift.high |= static_cast<uint64_t>(newest) << 56;
        shift.Push(0);
        newest = static_cast<uint8_t>(in[i] ^ block.c[0]);
        out[i] = newest;
    }
}

void TwofishCfb8Decrypt(const TwofishKey& key, const uint8_t* initial, std::span<const uint8_t> in,
                        uint8_t* out) {
    // Every register is known from the ciphertext alone, so four blocks run side by side and hide
    // the latency of each other's table look-ups. More would not fit into the CPU's registers.
    constexpr size_t kLanes = 4;
    const TwofishSchedule& schedule = key.Schedule();
    const uint32_t* k = schedule.subkeys;
    Register shift(initial);
    for (size_t done = 0; done < in.size(); done += kLanes) {
        size_t part = std::min(kLanes, in.size() - done);
        uint8_t cipher[kLanes] = {};
        std::copy_n(in.data() + done, part, cipher);
        Blocks<kLanes> blocks;
        for (size_t i = 0; i < kLanes; i++) {
            blocks.a[i] = static_cast<uint32_t>(shift.low) ^ k[0];
            blocks.b[i] = static_cast<uint32_t>(shift.low >> 32) ^ k[1];
            blocks.c[i] = static_cast<uint32_t>(shift.high) ^ k[2];
            blocks.d[i] = static_cast<uint32_t>(shift.high >> 32) ^ k[3];
            shift.Push(cipher[i]);
        }
        EncryptFirstBytes(schedule, blocks);
        for (size_t i = 0; i < part; i++) {
            out[done + i] = static_cast<uint8_t>(cipher[i] ^ blocks.c[i]);
        }
    }
}

}  // namespace zot
