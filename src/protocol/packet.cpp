#include "protocol/packet.h"

#include <span>

#include "base/md5.h"
#include "protocol/zot_const.h"

namespace zot {
namespace {

constexpr int kLengthField = 4;
constexpr size_t kSignatureAt = 4;
constexpr uint8_t kSignature[2] = {0x03, 0x12};
constexpr size_t kDigestLengthAt = 6;
constexpr int kShortField = 2;
constexpr size_t kDigestAt = kDigestLengthAt + kShortField;
constexpr size_t kMinPacketSize = 14;
constexpr size_t kMd5Size = 16;

uint8_t* Bytes(VyString& text, size_t offset) {
    return reinterpret_cast<uint8_t*>(text.Data()) + offset;
}

// Looks at every byte whatever it finds, so that the time taken tells nothing about the digest.
bool SameDigest(std::span<const uint8_t> sent, std::string_view password) {
    if (password.empty()) return sent.empty();
    if (sent.size() != kMd5Size) return false;
    uint8_t expected[kMd5Size];
    Md5 md5;
    md5.Update(password.data(), password.size());
    md5.Final(expected);
    unsigned difference = 0;
    for (size_t i = 0; i < kMd5Size; ++i)
        difference |= static_cast<unsigned>(sent[i] ^ expected[i]);
    return difference == 0;
}

}  // namespace

PacketState CheckPacket(std::string_view received) {
    if (received.size() < kLengthField) return PacketState::kIncomplete;
    auto* bytes = reinterpret_cast<const uint8_t*>(received.data());
    uint64_t whole = uint64_t{DecodeLength(bytes, kLengthField)} + kLengthField;
    if (whole > kMaxPacketSize) return PacketState::kTooLarge;
    bool complete = received.size() >= kMinPacketSize && whole <= received.size();
    return complete ? PacketState::kComplete : PacketState::kIncomplete;
}

bool DecodeRequest(VyString& packet, std::string_view password, uint32_t peerAddress, Log& log,
                   RequestPacket& request) {
    auto trace = [&](const char* format, uint64_t value) {
        log.WriteLog(LogKind::kTrace, peerAddress, format, static_cast<int>(value));
    };
    request.sessionKey.Clear();
    auto size = static_cast<size_t>(packet.Length());
    trace("<-- TCP packet size: %d\n", size);
    if (size < kMinPacketSize) return false;
    auto field = [&packet](size_t offset, int width) {
        return uint64_t{DecodeLength(Bytes(packet, offset), width)};
    };

    uint64_t announced = field(0, kLengthField);
    trace("<-- ZOT packet size: %d\n", announced);
    if (announced + kLengthField != size) return false;
    uint64_t digestLength = field(kDigestLengthAt, kShortField);
    trace("<-- Pswd size: %d\n", digestLength);
    if (kMinPacketSize + digestLength > size) return false;
    size_t keyAt = kDigestAt + digestLength + kShortField;
    uint64_t keyLength = field(keyAt - kShortField, kShortField);
    trace("<-- Key size: %d\n", keyLength);
    if (kMinPacketSize + digestLength + keyLength > size) return false;
    size_t textAt = keyAt + keyLength + kLengthField;
    uint64_t textLength = field(textAt - kLengthField, kLengthField);
    trace("<-- Req size: %d\n", textLength);
    if (kMinPacketSize + digestLength + keyLength + textLength > size) return false;

    if (*Bytes(packet, kSignatureAt) != kSignature[0]) return false;
    if (*Bytes(packet, kSignatureAt + 1) != kSignature[1]) return false;
    if (!SameDigest({Bytes(packet, kDigestAt), digestLength}, password)) {
        log.WriteLogText(LogKind::kTrace, peerAddress, "<-- Wrong password or MD5 error\n");
        return false;
    }

    PacketCipher(password).Decrypt({Bytes(packet, keyAt), keyLength}, Bytes(packet, keyAt));
    request.sessionKey = packet.View().substr(keyAt, keyLength);
    request.cipher.emplace(request.sessionKey.View());
    request.cipher->Decrypt({Bytes(packet, textAt), textLength}, Bytes(packet, textAt));
    request.text = packet.View().substr(textAt, textLength);
    return true;
}

VyString SealReply(Reply reply, const PacketCipher& cipher) {
    reply.Finish();
    VyString& text = reply.Text();
    auto size = static_cast<size_t>(text.Length());
    VyString sealed;
    uint8_t length[kLengthField];
    EncodeLength(static_cast<uint32_t>(size), kLengthField, length);
    sealed.Reserve(size + sizeof length);
    sealed.Append(std::string_view(reinterpret_cast<const char*>(length), sizeof length));
    sealed.Append(text);
    cipher.Encrypt({Bytes(sealed, kLengthField), size}, Bytes(sealed, kLengthField));
    text.Wipe();
    return sealed;
}

}  // namespace zot
