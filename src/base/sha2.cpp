#include "base/sha2.h"

#include <bit>
#include <cstring>
#include <utility>

#include "base/byte_order.h"
#include "base/platform/hash.h"
#include "base/sha2_constants.h"

namespace zot {
namespace {

// What differs between the two: the word, the constants and the rotations.
template <typename Word>
struct Traits;

template <>
struct Traits<uint32_t> {
    static constexpr uint32_t kStart[8] = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                                           0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
    static constexpr size_t kRounds = 64;
    static constexpr const uint32_t* kConstants = kSha256Constants;
    static constexpr int kBigSigma0[3] = {2, 13, 22};
    static constexpr int kBigSigma1[3] = {6, 11, 25};
    // The last of the three is a shift.
    static constexpr int kSmallSigma0[3] = {7, 18, 3};
    static constexpr int kSmallSigma1[3] = {17, 19, 10};
    static uint32_t Load(const uint8_t* p) { return LoadBe32(p); }
    static void Store(uint8_t* p, uint32_t value) { StoreBe32(p, value); }
    static Sha256Function Fastest() {
        Sha256Function accelerated = AcceleratedHashes().sha256;
        return accelerated != nullptr ? accelerated : Sha256Portable;
    }
};

template <>
struct Traits<uint64_t> {
    static constexpr uint64_t kStart[8] = {
        0x6a09e667f3bcc908, 0xbb67ae8584caa73b, 0x3c6ef372fe94f82b, 0xa54ff53a5f1d36f1,
        0x510e527fade682d1, 0x9b05688c2b3e6c1f, 0x1f83d9abfb41bd6b, 0x5be0cd19137e2179};
    static constexpr size_t kRounds = 80;
    static constexpr const uint64_t* kConstants = kSha512Constants;
    static constexpr int kBigSigma0[3] = {28, 34, 39};
    static constexpr int kBigSigma1[3] = {14, 18, 41};
    static constexpr int kSmallSigma0[3] = {1, 8, 7};
    static constexpr int kSmallSigma1[3] = {19, 61, 6};
    static uint64_t Load(const uint8_t* p) { return LoadBe64(p); }
    static void Store(uint8_t* p, uint64_t value) { StoreBe64(p, value); }
    static Sha512Function Fastest() {
        Sha512Function accelerated = AcceleratedHashes().sha512;
        return accelerated != nullptr ? accelerated : Sha512Portable;
    }
};

// Round `t`. v[0..7] are a to h at round 0; the names move down by one word each round instead of
// the words. `scheduled` is the sum of message word and constant.
template <size_t t, typename Word>
[[gnu::always_inline]] inline void Round(Word (&v)[8], Word scheduled) {
    using Hash = Traits<Word>;
    constexpr size_t kFirst = 80 - t;
    const Word a = v[kFirst % 8], b = v[(kFirst + 1) % 8], c = v[(kFirst + 2) % 8];
    const Word e = v[(kFirst + 4) % 8], f = v[(kFirst + 5) % 8], g = v[(kFirst + 6) % 8];
    Word& d = v[(kFirst + 3) % 8];
    Word& h = v[(kFirst + 7) % 8];
    // The halves of the choice share no bit, so they can be added.
    h += scheduled + (g & ~e) + (e & f) +
         (std::rotr(e, Hash::kBigSigma1[0]) ^ std::rotr(e, Hash::kBigSigma1[1]) ^
          std::rotr(e, Hash::kBigSigma1[2]));
    d += h;
    // The majority; a ^ b serves again as b ^ c of the next round.
    h += b ^ ((a ^ b) & (b ^ c));
    h += std::rotr(a, Hash::kBigSigma0[0]) ^ std::rotr(a, Hash::kBigSigma0[1]) ^
         std::rotr(a, Hash::kBigSigma0[2]);
}

template <const int (&by)[3], typename Word>
[[gnu::always_inline]] inline Word SmallSigma(Word x) {
    return std::rotr(x, by[0]) ^ std::rotr(x, by[1]) ^ (x >> by[2]);
}

// Sixteen rounds from `t` on; each replaces its message word by the one of sixteen rounds later.
template <typename Word, size_t... i>
[[gnu::always_inline]] inline void SixteenRounds(Word (&v)[8], Word (&w)[16], size_t t,
                                                 std::index_sequence<i...>) {
    using Hash = Traits<Word>;
    ((Round<i>(v, static_cast<Word>(w[i] + Hash::kConstants[t + i])),
      w[i] += SmallSigma<Hash::kSmallSigma0>(w[(i + 1) % 16]) + w[(i + 9) % 16] +
              SmallSigma<Hash::kSmallSigma1>(w[(i + 14) % 16])),
     ...);
}

template <typename Word>
void CompressBlocks(Word* state, const uint8_t* blocks, size_t count) {
    using Hash = Traits<Word>;
    for (; count != 0; --count, blocks += 16 * sizeof(Word)) {
        Word w[16];
        Word v[8];
        for (size_t i = 0; i < 16; ++i) w[i] = Hash::Load(blocks + i * sizeof(Word));
        for (size_t i = 0; i < 8; ++i) v[i] = state[i];
        for (size_t t = 0; t < Hash::kRounds; t += 16) {
            SixteenRounds(v, w, t, std::make_index_sequence<16>());
        }
        for (size_t i = 0; i < 8; ++i) state[i] += v[i];
    }
}

}  // namespace

void Sha256Portable(uint32_t* state, const uint8_t* blocks, size_t count) {
    CompressBlocks(state, blocks, count);
}

void Sha512Portable(uint64_t* state, const uint8_t* blocks, size_t count) {
    CompressBlocks(state, blocks, count);
}

template <typename Word>
Sha2<Word>::Sha2() {
    static const Compress fastest = Traits<Word>::Fastest();
    compress_ = fastest;
    Init();
}

template <typename Word>
void Sha2<Word>::Init() {
    memcpy(state_, Traits<Word>::kStart, sizeof(state_));
    stream_.Reset();
}

template <typename Word>
void Sha2<Word>::Update(std::span<const uint8_t> data) {
    stream_.Update(data.data(), data.size(), [this](const uint8_t* blocks, size_t count) {
        compress_(state_, blocks, count);
    });
}

template <typename Word>
void Sha2<Word>::Final(uint8_t digest[kDigestSize]) {
    stream_.Finish(
        [this](const uint8_t* blocks, size_t count) { compress_(state_, blocks, count); });
    for (size_t i = 0; i < 8; ++i) Traits<Word>::Store(digest + i * sizeof(Word), state_[i]);
}

template class Sha2<uint32_t>;
template class Sha2<uint64_t>;

}  // namespace zot
