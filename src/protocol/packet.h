// The packets of the wire protocol: deciding when a request is complete, opening it, sealing the
// reply.
//
// A request is  L(4) 0x03 0x12 P(2) digest(P) K(2) key(K) R(4) text(R)  with little-endian lengths,
// L counting what follows it. The digest is MD5 of the password; the key travels encrypted under
// the password, the text under the key. A reply is N(4) and N encrypted bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "base/vystring.h"
#include "config/log.h"
#include "protocol/packet_cipher.h"
#include "protocol/reply.h"

namespace zot {

// The longest packet, its length field included. Nobody has proved anything while a packet comes
// in, so this bounds the memory that a stranger's connection can hold; the largest honest request
// (a script with its parameters) is far below it.
inline constexpr size_t kMaxPacketSize = size_t{16} << 20;

enum class PacketState { kIncomplete, kComplete, kTooLarge };

// Judges the bytes received so far by their announced length, in 64-bit arithmetic.
PacketState CheckPacket(std::string_view received);

// A request that was opened. The text lies in the packet's own buffer.
struct RequestPacket {
    std::string_view text;
    VyString sessionKey;
    std::optional<PacketCipher> cipher;  // prepared from sessionKey, used for the reply too
};

// Checks a complete packet against the password and decrypts it in place. Returns true with
// `request` filled; false for an invalid packet, whose reason only the trace log tells.
bool DecodeRequest(VyString& packet, std::string_view password, uint32_t peerAddress, Log& log,
                   RequestPacket& request);

// The bytes to send for the reply: its length, then its text, ended and encrypted. The text itself,
// which may hold a password, is wiped.
VyString SealReply(Reply reply, const PacketCipher& cipher);

}  // namespace zot
