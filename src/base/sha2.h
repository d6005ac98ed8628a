// SHA-256 and SHA-512 (FIPS 180-4).
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>

#include "base/block_hash.h"

namespace zot {

// One message at a time; `Word` is uint32_t for SHA-256 and uint64_t for SHA-512.
template <typename Word>
class Sha2 {
  public:
    static constexpr size_t kDigestSize = 8 * sizeof(Word);
    using Compress = void (*)(Word* state, const uint8_t* blocks, size_t count);

    // Works with the fastest compression function that this processor can run, found out once.
    Sha2();
    // Works with the given one.
    explicit Sha2(Compress compress) : compress_(compress) { Init(); }
    // Starts a new message.
    void Init();
    void Update(std::span<const uint8_t> data);
    // Writes the digest of the message; Init() must come before the next message.
    void Final(uint8_t digest[kDigestSize]);

  private:
    Compress compress_;
    Word state_[8];
    BlockStream<16 * sizeof(Word), std::endian::big> stream_;
};

using Sha256 = Sha2<uint32_t>;
using Sha512 = Sha2<uint64_t>;
extern template class Sha2<uint32_t>;
extern template class Sha2<uint64_t>;

// The compression functions without the processor's own instructions.
void Sha256Portable(uint32_t* state, const uint8_t* blocks, size_t count);
void Sha512Portable(uint64_t* state, const uint8_t* blocks, size_t count);

}  // namespace zot
