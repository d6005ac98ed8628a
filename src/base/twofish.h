// Twofish, the 128-bit block cipher of the AES candidate submission (Schneier et al., 1998).
// A prepared key holds the four key-dependent S-boxes with the MDS matrix already applied, so that
// a round is eight table look-ups; a short packet pays for the preparation within a few blocks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "base/wipe.h"

namespace zot {

constexpr size_t kTwofishBlockSize = 16;
constexpr size_t kTwofishMaxKeySize = 32;

// What a key expands to.
struct TwofishSchedule {
    uint32_t subkeys[40];   // 4 input whitening, 4 output whitening, 2 for each of 16 rounds
    uint32_t sBox[4][256];  // by byte of the word, lowest first
};

// Enables the cipher and runs its self-test. Must run once, before any thread prepares a key; after
// that any number of threads may use the cipher. A failed test ends the process.
void TwofishInitialise();

// A prepared key. Wipes itself.
class TwofishKey {
  public:
    // Holds no key until Prepare is called.
    TwofishKey() {}
    // Takes 0 to 32 bytes; a key between the sizes 16, 24 and 32 is extended with zeros.
    explicit TwofishKey(std::span<const uint8_t> key) { Prepare(key); }
    TwofishKey(const TwofishKey&) = default;
    TwofishKey& operator=(const TwofishKey&) = default;
    ~TwofishKey() { Wipe(); }

    // Replaces the key. A longer key, or a call before TwofishInitialise, ends the process.
    void Prepare(std::span<const uint8_t> key);
    // Both work on 16 bytes; `out` may be `in`.
    void EncryptBlock(const uint8_t* in, uint8_t* out) const;
    void DecryptBlock(const uint8_t* in, uint8_t* out) const;
    void Wipe() { WipeMemory(&schedule_, sizeof(schedule_)); }

    const TwofishSchedule& Schedule() const { return schedule_; }

  private:
    TwofishSchedule schedule_;
};

}  // namespace zot
