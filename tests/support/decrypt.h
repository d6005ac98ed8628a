// Opens what the packet cipher has encrypted, as only tests need it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "base/twofish.h"
#include "protocol/packet_cipher.h"

namespace zot::test {

inline std::string Decrypt(std::string_view keyString, std::string_view data) {
    [[maybe_unused]] static const bool initialised = (TwofishInitialise(), true);
    std::string result(data.size(), '\0');
    PacketCipher(keyString).Decrypt({reinterpret_cast<const uint8_t*>(data.data()), data.size()},
                                    reinterpret_cast<uint8_t*>(result.data()));
    return result;
}

}  // namespace zot::test
