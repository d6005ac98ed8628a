// MD5 (RFC 1321). It proves the password on the wire and names the content of files; its own
// strength is not relied on.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>

#include "base/block_hash.h"

namespace zot {

class Md5 {
  public:
    static constexpr size_t kDigestSize = 16;

    Md5() { Init(); }
    // Starts a new message.
    void Init();
    void Update(std::span<const uint8_t> data);
    void Update(const void* data, size_t size);
    // Writes the digest of the message; Init() must come before the next message.
    void Final(uint8_t digest[kDigestSize]);

  private:
    uint32_t state_[4];
    BlockStream<64, std::endian::little> stream_;
};

// The digest of `size` bytes at `data`.
std::array<uint8_t, Md5::kDigestSize> Md5Digest(const void* data, size_t size);

}  // namespace zot
