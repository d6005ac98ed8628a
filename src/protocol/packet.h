// The packets of the wire protocol: when a request is complete, how it is opened, how the reply is
// sealed.
//
// A request is  L(4) 0x03 0x12 P(2) digest(P) K(2) key(K) R(4) text(R)  with little-endian lengths;
// L counts what follows it. The digest is the MD5 of the password. The key is encrypted with the
// password, the text with the key. A reply is N(4) and N encrypted bytes.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string_view>

#include "base/vystring.h"
#include "config/log.h"
#include "config/settings.h"
#include "protocol/packet_cipher.h"
#include "protocol/reply.h"

namespace zot {

// The longest packet, including its length field. The sender has proved nothing while a packet
// arrives, so this bounds the memory that a stranger's connection can hold; the largest honest
// request (a script with its parameters) is far smaller.
inline constexpr size_t kMaxPacketSize = size_t{16} << 20;

enum class PacketState { kIncomplete, kComplete, kTooLarge };

// Judges the bytes received so far by the length they announce, in 64-bit arithmetic.
PacketState CheckPacket(std::string_view received);

// What a password is good for, prepared once. Wipes itself.
class PasswordKey {
  public:
    explicit PasswordKey(std::string_view password);
    ~PasswordKey();
    PasswordKey(const PasswordKey&) = delete;
    PasswordKey& operator=(const PasswordKey&) = delete;

    // How long the digest of a packet must be: 16 bytes, or none without a password.
    size_t DigestSize() const { return digestSize_; }
    // Compares every byte whatever it finds, so that the time taken reveals nothing about the
    // digest.
    bool Matches(std::span<const uint8_t> sent) const;
    // For the keys of the requests.
    const PacketCipher& Cipher() const { return cipher_; }

  private:
    std::array<uint8_t, 16> digest_;
    size_t digestSize_;
    PacketCipher cipher_;
};

// The key of the latest password, prepared again when the settings have changed.
class PasswordKeys {
  public:
    // The key for the password of these settings.
    std::shared_ptr<const PasswordKey> For(const AgentSettings& settings);

  private:
    std::mutex keyMutex_;
    uint64_t revision_ = 0;
    std::shared_ptr<const PasswordKey> key_;
};

// An opened request. The text lies in the packet's own buffer.
struct RequestPacket {
    std::string_view text;
    VyString sessionKey;
    std::optional<PacketCipher> cipher;  // prepared from sessionKey, used for the reply too
};

// The lengths that a packet announces, as far as they have arrived, and how much has arrived.
struct PacketLengths {
    uint64_t received = 0;
    uint32_t packet = 0;
    uint16_t digest = 0;
    uint16_t key = 0;
    uint32_t text = 0;
};

// Where the fields of a packet begin, given the lengths before them.
namespace packet_layout {
inline constexpr size_t kSignatureAt = 4;
inline constexpr size_t kDigestLengthAt = 6;
inline constexpr size_t kDigestAt = 8;
inline constexpr size_t kLengthField = 4;  // of the packet and of the text
inline constexpr size_t kShortField = 2;   // of the digest and of the key
inline constexpr size_t kMinPacketSize = 14;
inline constexpr std::array<uint8_t, 2> kSignature = {0x03, 0x12};
}  // namespace packet_layout

// Writes the lengths one after another to the trace log. Returns false at the first that does not
// fit what was received.
bool CheckLengths(const PacketLengths& lengths, uint32_t peerAddress, Log& log);

// Notes in the trace log that the password digest of a packet is wrong.
void TraceWrongPassword(uint32_t peerAddress, Log& log);

// Checks a complete packet against the password and decrypts it in place. Returns true with
// `request` filled; false for an invalid packet, with the reason only in the trace log.
bool DecodeRequest(std::span<char> packet, const PasswordKey& password, uint32_t peerAddress,
                   Log& log, RequestPacket& request);

// The bytes to send for the reply: its length, then its text, finished and encrypted. Wipes the
// text itself, which may hold a password.
VyString SealReply(Reply reply, const PacketCipher& cipher);

}  // namespace zot
