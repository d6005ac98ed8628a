#include "protocol/packet_cipher.h"

#include <array>
#include <cstring>

#include "base/sha1.h"
#include "base/twofish_cfb8.h"
#include "base/wipe.h"

namespace zot {

PacketCipher::PacketCipher(std::string_view keyString) {
    auto digest =
        Sha1Digest({reinterpret_cast<const uint8_t*>(keyString.data()), keyString.size()});
    key_.Prepare(digest);
    WipeMemory(digest.data(), digest.size());
    memset(initialRegister_, 0xFF, sizeof(initialRegister_));
    key_.EncryptBlock(initialRegister_, initialRegister_);
}

PacketCipher::~PacketCipher() { WipeMemory(initialRegister_, sizeof(initialRegister_)); }

void PacketCipher::Encrypt(std::span<const uint8_t> in, uint8_t* out) const {
    TwofishCfb8Encrypt(key_, initialRegister_, in, out);
}

void PacketCipher::Decrypt(std::span<const uint8_t> in, uint8_t* out) const {
    TwofishCfb8Decrypt(key_, initialRegister_, in, out);
}

// In this mode the register is simply the encrypted bytes before.
void PacketCipher::DecryptOn(const uint8_t* before, std::span<const uint8_t> in,
                             uint8_t* out) const {
    TwofishCfb8Decrypt(key_, before, in, out);
}

}  // namespace zot
