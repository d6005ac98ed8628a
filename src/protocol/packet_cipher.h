// The cipher of the packets: Twofish in 8-bit cipher feedback with the SHA-1 of a key string as
// key.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "base/twofish.h"

namespace zot {

// Prepared once for a key string and used for both directions. Wipes itself.
class PacketCipher {
  public:
    // Takes any key string, even an empty one. Needs TwofishInitialise to have run.
    explicit PacketCipher(std::string_view keyString);
    PacketCipher(const PacketCipher&) = delete;
    PacketCipher& operator=(const PacketCipher&) = delete;
    ~PacketCipher();

    // Every packet starts from the same register. Both write in.size() bytes to `out`, which may be
    // where `in` begins but must not overlap it otherwise.
    void Encrypt(std::span<const uint8_t> in, uint8_t* out) const;
    void Decrypt(std::span<const uint8_t> in, uint8_t* out) const;
    // Decrypts what follows the 16 encrypted bytes at `before`, so that packets can be opened piece
    // by piece.
    void DecryptOn(const uint8_t* before, std::span<const uint8_t> in, uint8_t* out) const;

  private:
    TwofishKey key_;
    uint8_t initialRegister_[kTwofishBlockSize];
};

}  // namespace zot
