// The packet cipher against cipher feedback as the standard defines it: one block at a time, with
// the block encryption that the published vectors check. The first byte is the length of the key
// string.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "base/sha1.h"
#include "base/twofish.h"
#include "fuzz/scratch.h"
#include "protocol/packet_cipher.h"

namespace {

using namespace zot;

std::span<const uint8_t> Bytes(std::string_view text) {
    return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

std::vector<uint8_t> Feedback(std::string_view keyString, std::string_view input, bool encrypt) {
    TwofishKey key(Sha1Digest(Bytes(keyString)));
    uint8_t shift[kTwofishBlockSize];
    std::memset(shift, 0xFF, sizeof shift);
    key.EncryptBlock(shift, shift);
    std::vector<uint8_t> output;
    for (uint8_t byte : Bytes(input)) {
        uint8_t block[kTwofishBlockSize];
        key.EncryptBlock(shift, block);
        output.push_back(byte ^ block[0]);
        std::memmove(shift, shift + 1, sizeof shift - 1);
        shift[sizeof shift - 1] = encrypt ? output.back() : byte;
    }
    return output;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool ready = (TwofishInitialise(), true);
    fuzz::Require(ready);
    std::string_view input(reinterpret_cast<const char*>(data), size);
    std::string_view key = input.substr(0, fuzz::TakeByte(input));
    PacketCipher cipher(key);
    std::vector<uint8_t> output(input.size());
    cipher.Decrypt(Bytes(input), output.data());
    fuzz::Require(output == Feedback(key, input, false));
    cipher.Encrypt(output, output.data());  // in place, as replies are
    fuzz::Require(std::equal(output.begin(), output.end(), Bytes(input).begin()));
    return 0;
}
