#include <cpuid.h>
#include <immintrin.h>

#include <bit>
#include <utility>

#include "base/byte_order.h"
#include "base/crc32.h"
#include "base/platform/hash.h"
#include "base/sha2_constants.h"

namespace zot {
namespace {

// ---- CRC-32 by carry-less multiplication: "Fast CRC Computation for Generic Polynomials Using
// PCLMULQDQ Instruction" (Gopal et al., Intel, 2009).

// x^n modulo the polynomial, bit-reversed, as the factor that moves a reversed value n bits on.
constexpr long long PowerOfX(int n) {
    uint32_t power = 0x80000000;
    for (; n != 0; --n) power = (power >> 1) ^ ((power & 1) != 0 ? 0xedb88320 : 0);
    return static_cast<long long>(power) << 1;
}

constexpr int kBitsPerStep = 4 * 128;

[[gnu::target("pclmul,sse4.1"), gnu::always_inline]] inline __m128i Fold(__m128i value,
                                                                         __m128i factors,
                                                                         __m128i next) {
    __m128i low = _mm_clmulepi64_si128(value, factors, 0x00);
    __m128i high = _mm_clmulepi64_si128(value, factors, 0x11);
    return _mm_xor_si128(_mm_xor_si128(low, high), next);
}

[[gnu::target("pclmul,sse4.1"), gnu::always_inline]] inline __m128i Load(const uint8_t* from) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
}

[[gnu::target("pclmul,sse4.1")]] uint32_t Crc32Multiply(uint32_t state, const uint8_t* data,
                                                        size_t size) {
    if (size < 64) return Crc32Portable(state, data, size);
    const __m128i farFactors =
        _mm_set_epi64x(PowerOfX(kBitsPerStep - 32), PowerOfX(kBitsPerStep + 32));
    const __m128i nearFactors = _mm_set_epi64x(PowerOfX(128 - 32), PowerOfX(128 + 32));
    __m128i a = _mm_xor_si128(Load(data), _mm_cvtsi32_si128(static_cast<int>(state)));
    __m128i b = Load(data + 16);
    __m128i c = Load(data + 32);
    __m128i d = Load(data + 48);
    for (data += 64, size -= 64; size >= 64; data += 64, size -= 64) {
        a = Fold(a, farFactors, Load(data));
        b = Fold(b, farFactors, Load(data + 16));
        c = Fold(c, farFactors, Load(data + 32));
        d = Fold(d, farFactors, Load(data + 48));
    }
    a = Fold(Fold(Fold(a, nearFactors, b), nearFactors, c), nearFactors, d);
    for (; size >= 16; data += 16, size -= 16) a = Fold(a, nearFactors, Load(data));
    // The 16 bytes left stand for everything before them.
    uint8_t folded[16];
    _mm_storeu_si128(reinterpret_cast<__m128i*>(folded), a);
    return Crc32Portable(Crc32Portable(0, folded, sizeof(folded)), data, size);
}

// ---- SHA-256 by the SHA extensions

[[gnu::target("sha,sse4.1"), gnu::always_inline]] inline void FourRounds(__m128i& abef,
                                                                         __m128i& cdgh, __m128i w,
                                                                         size_t t) {
    __m128i sum =
        _mm_add_epi32(w, _mm_loadu_si128(reinterpret_cast<const __m128i*>(kSha256Constants + t)));
    cdgh = _mm_sha256rnds2_epu32(cdgh, abef, sum);
    abef = _mm_sha256rnds2_epu32(abef, cdgh, _mm_shuffle_epi32(sum, 0x0e));
}

// The four message words that follow w3, from the sixteen before them.
[[gnu::target("sha,sse4.1"), gnu::always_inline]] inline __m128i NextWords(__m128i w0, __m128i w1,
                                                                           __m128i w2, __m128i w3) {
    __m128i sum = _mm_add_epi32(_mm_sha256msg1_epu32(w0, w1), _mm_alignr_epi8(w3, w2, 4));
    return _mm_sha256msg2_epu32(sum, w3);
}

[[gnu::target("sha,sse4.1")]] void Sha256Instructions(uint32_t* state, const uint8_t* blocks,
                                                      size_t count) {
    const __m128i swap = _mm_set_epi64x(0x0c0d0e0f08090a0b, 0x0405060700010203);
    auto* words = reinterpret_cast<__m128i*>(state);
    // The instructions want the state as two registers that hold ABEF and CDGH.
    __m128i badc = _mm_shuffle_epi32(_mm_loadu_si128(words), 0xb1);
    __m128i hgfe = _mm_shuffle_epi32(_mm_loadu_si128(words + 1), 0x1b);
    __m128i abef = _mm_alignr_epi8(badc, hgfe, 8);
    __m128i cdgh = _mm_blend_epi16(hgfe, badc, 0xf0);
    for (; count != 0; --count, blocks += 64) {
        const __m128i startAbef = abef;
        const __m128i startCdgh = cdgh;
        const auto* message = reinterpret_cast<const __m128i*>(blocks);
        __m128i w0 = _mm_shuffle_epi8(_mm_loadu_si128(message), swap);
        __m128i w1 = _mm_shuffle_epi8(_mm_loadu_si128(message + 1), swap);
        __m128i w2 = _mm_shuffle_epi8(_mm_loadu_si128(message + 2), swap);
        __m128i w3 = _mm_shuffle_epi8(_mm_loadu_si128(message + 3), swap);
        for (size_t t = 0; t < 48; t += 16) {
            FourRounds(abef, cdgh, w0, t);
            w0 = NextWords(w0, w1, w2, w3);
            FourRounds(abef, cdgh, w1, t + 4);
            w1 = NextWords(w1, w2, w3, w0);
            FourRounds(abef, cdgh, w2, t + 8);
            w2 = NextWords(w2, w3, w0, w1);
            FourRounds(abef, cdgh, w3, t + 12);
            w3 = NextWords(w3, w0, w1, w2);
        }
        FourRounds(abef, cdgh, w0, 48);
        FourRounds(abef, cdgh, w1, 52);
        FourRounds(abef, cdgh, w2, 56);
        FourRounds(abef, cdgh, w3, 60);
        abef = _mm_add_epi32(abef, startAbef);
        cdgh = _mm_add_epi32(cdgh, startCdgh);
    }
    __m128i feba = _mm_shuffle_epi32(abef, 0x1b);
    __m128i dchg = _mm_shuffle_epi32(cdgh, 0xb1);
    _mm_storeu_si128(words, _mm_blend_epi16(feba, dchg, 0xf0));
    _mm_storeu_si128(words + 1, _mm_alignr_epi8(dchg, feba, 8));
}

// ---- SHA-512 with the message words two at a time in vectors, beside the rounds in the integer
// unit, where BMI2 has rotations that keep their operand

using TwoWords [[gnu::vector_size(16)]] = uint64_t;

// Keeps the compiler from regrouping the additions that made `sum` with those that follow.
[[gnu::always_inline]] inline void Settle(uint64_t& sum) { asm("" : "+r"(sum)); }

// Round `t` of sixteen. v[0..7] are a to h at round 0; the names move down by one word each round
// instead of the words. Each round waits for `a` and `e` of the one before: whatever needs neither
// is added first, and the rotations, which take longest, last.
template <size_t t>
[[gnu::always_inline]] inline void Sha512Round(uint64_t (&v)[8], uint64_t scheduled) {
    const uint64_t a = v[(16 - t) % 8], b = v[(17 - t) % 8], c = v[(18 - t) % 8];
    const uint64_t e = v[(20 - t) % 8], f = v[(21 - t) % 8], g = v[(22 - t) % 8];
    uint64_t& d = v[(19 - t) % 8];
    uint64_t& h = v[(23 - t) % 8];
    h += scheduled;
    Settle(h);
    d += h;
    Settle(d);
    // The halves of the choice share no bit, so they can be added; those of the majority too.
    uint64_t choice = (g & ~e) + (e & f);
    Settle(choice);
    d += choice;
    Settle(d);
    h += choice;
    Settle(h);
    uint64_t sigma = std::rotr(e, 14) ^ std::rotr(e, 18) ^ std::rotr(e, 41);
    Settle(sigma);
    d += sigma;
    Settle(d);
    h += b & c;
    Settle(h);
    h += a & (b ^ c);
    Settle(h);
    h += sigma;
    Settle(h);
    h += std::rotr(a, 28) ^ std::rotr(a, 34) ^ std::rotr(a, 39);
}

[[gnu::always_inline]] inline TwoWords Rotate(TwoWords x, int by) {
    return x >> by | x << (64 - by);
}

// Words t + 16 and t + 17 from w0, which holds t and t + 1, and from those that follow.
[[gnu::always_inline]] inline TwoWords NextTwoWords(TwoWords w0, TwoWords w1, TwoWords w4,
                                                    TwoWords w5, TwoWords w7) {
    TwoWords first = __builtin_shufflevector(w0, w1, 1, 2);
    TwoWords ninth = __builtin_shufflevector(w4, w5, 1, 2);
    return w0 + (Rotate(first, 1) ^ Rotate(first, 8) ^ first >> 7) + ninth +
           (Rotate(w7, 19) ^ Rotate(w7, 61) ^ w7 >> 6);
}

// Word and constant of two rounds. They must pass through memory: taken from the vector register,
// they would cost the rounds more than the loads do.
[[gnu::always_inline]] inline void Schedule(TwoWords& sums, TwoWords words,
                                            const TwoWords& constants) {
    sums = words + constants;
    asm("" : "+m"(sums));
}

template <size_t... i>
[[gnu::always_inline]] inline void SixteenRounds(uint64_t (&v)[8], const TwoWords (&sums)[8],
                                                 std::index_sequence<i...>) {
    ((Sha512Round<2 * i>(v, sums[i][0]), Sha512Round<2 * i + 1>(v, sums[i][1])), ...);
}

template <size_t... i>
[[gnu::always_inline]] inline void SixteenRoundsAndWords(uint64_t (&v)[8], TwoWords (&w)[8],
                                                         TwoWords (&sums)[8],
                                                         const TwoWords* constants,
                                                         std::index_sequence<i...>) {
    ((Sha512Round<2 * i>(v, sums[i][0]), Sha512Round<2 * i + 1>(v, sums[i][1]),
      w[i] = NextTwoWords(w[i], w[(i + 1) % 8], w[(i + 4) % 8], w[(i + 5) % 8], w[(i + 7) % 8]),
      Schedule(sums[i], w[i], constants[i])),
     ...);
}

template <size_t... i>
[[gnu::always_inline]] inline void AddState(uint64_t* state, const uint64_t (&v)[8],
                                            std::index_sequence<i...>) {
    ((state[i] += v[i]), ...);
}

[[gnu::target("avx2,bmi,bmi2")]] void Sha512Vectors(uint64_t* state, const uint8_t* blocks,
                                                    size_t count) {
    constexpr auto kEight = std::make_index_sequence<8>();
    const auto* constants = reinterpret_cast<const TwoWords*>(kSha512Constants);
    for (; count != 0; --count, blocks += 128) {
        TwoWords w[8];
        TwoWords sums[8];
        for (size_t i = 0; i < 8; ++i) {
            w[i] = TwoWords{LoadBe64(blocks + 16 * i), LoadBe64(blocks + 16 * i + 8)};
            Schedule(sums[i], w[i], constants[i]);
        }
        // A loop over the state would let the compiler keep it in memory or gather it in vectors.
        uint64_t v[8] = {state[0], state[1], state[2], state[3],
                         state[4], state[5], state[6], state[7]};
        for (size_t t = 8; t < 40; t += 8) {
            SixteenRoundsAndWords(v, w, sums, constants + t, kEight);
        }
        SixteenRounds(v, sums, kEight);
        AddState(state, v, kEight);
    }
}

bool HasShaExtensions() {
    unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
    return __get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx) != 0 && (ebx & bit_SHA) != 0;
}

}  // namespace

HashFunctions AcceleratedHashes() {
    __builtin_cpu_init();
    HashFunctions functions;
    const bool sse41 = __builtin_cpu_supports("sse4.1");
    if (sse41 && __builtin_cpu_supports("pclmul")) functions.crc32 = Crc32Multiply;
    if (sse41 && HasShaExtensions()) functions.sha256 = Sha256Instructions;
    if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi") &&
        __builtin_cpu_supports("bmi2")) {
        functions.sha512 = Sha512Vectors;
    }
    return functions;
}

}  // namespace zot
