// SHA-1 (FIPS 180-1), which turns a key string into a cipher key.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>

#include "base/block_hash.h"

namespace zot {

// One hash computation at a time; the digest stays in the object until the next one.
class Sha1Hash {
  public:
    static constexpr size_t kDigestSize = 20;
    using Digest = std::array<uint8_t, kDigestSize>;

    // Starts afresh, hashes the data (which may be empty) and returns the digest held here.
    const Digest& GetHash(std::span<const uint8_t> data);
    // Returns the digest of the last computation. Fails an assertion while one is unfinished.
    const Digest& GetHash() const;
    // Adds data; the first call starts a computation.
    void Update(std::span<const uint8_t> data);
    // Finishes the computation. Fails an assertion if none was started.
    void Final();

  private:
    void Start();

    Digest digest_{};
    bool fInitialized_ = false;
    uint32_t state_[5];
    BlockStream<64, std::endian::big> stream_;
};

}  // namespace zot
