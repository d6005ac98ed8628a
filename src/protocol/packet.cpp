#include "protocol/packet.h"

#include <algorithm>

#include "base/md5.h"
#include "base/wipe.h"
#include "protocol/length_codec.h"

namespace zot {
namespace {

using namespace packet_layout;

}  // namespace

PacketState CheckPacket(std::string_view received) {
    if (received.size() < kLengthField) return PacketState::kIncomplete;
    auto* bytes = reinterpret_cast<const uint8_t*>(received.data());
    uint64_t whole = uint64_t{DecodeLength(bytes, kLengthField)} + kLengthField;
    if (whole > kMaxPacketSize) return PacketState::kTooLarge;
    bool complete = received.size() >= kMinPacketSize && whole <= received.size();
    return complete ? PacketState::kComplete : PacketState::kIncomplete;
}

PasswordKey::PasswordKey(std::string_view password)
    : digestSize_(password.empty() ? 0 : digest_.size()), cipher_(password) {
    Md5 md5;
    md5.Update(password.data(), password.size());
    md5.Final(digest_.data());
}

PasswordKey::~PasswordKey() { WipeMemory(digest_.data(), digest_.size()); }

bool PasswordKey::Matches(std::span<const uint8_t> sent) const {
    if (sent.size() != digestSize_) return false;
    unsigned difference = 0;
    for (size_t i = 0; i < digestSize_; ++i)
        difference |= static_cast<unsigned>(sent[i] ^ digest_[i]);
    return difference == 0;
}

std::shared_ptr<const PasswordKey> PasswordKeys::For(const AgentSettings& settings) {
    std::lock_guard<std::mutex> lock(keyMutex_);
    if (key_ == nullptr || revision_ != settings.revision) {
        key_ = std::make_shared<const PasswordKey>(settings.password);
        revision_ = settings.revision;
    }
    return key_;
}

bool CheckLengths(const PacketLengths& lengths, uint32_t peerAddress, Log& log) {
    auto trace = [&](const char* format, uint64_t value) {
        log.WriteLog(LogKind::kTrace, peerAddress, format, static_cast<int>(value));
    };
    trace("<-- TCP packet size: %d\n", lengths.received);
    uint64_t needed = kMinPacketSize;
    if (lengths.received < needed) return false;
    trace("<-- ZOT packet size: %d\n", lengths.packet);
    if (uint64_t{lengths.packet} + kLengthField != lengths.received) return false;
    trace("<-- Pswd size: %d\n", lengths.digest);
    if (lengths.received < (needed += lengths.digest)) return false;
    trace("<-- Key size: %d\n", lengths.key);
    if (lengths.received < (needed += lengths.key)) return false;
    trace("<-- Req size: %d\n", lengths.text);
    return lengths.received >= needed + lengths.text;
}

void TraceWrongPassword(uint32_t peerAddress, Log& log) {
    log.WriteLogText(LogKind::kTrace, peerAddress, "<-- Wrong password or MD5 error\n");
}

bool DecodeRequest(std::span<char> packet, const PasswordKey& password, uint32_t peerAddress,
                   Log& log, RequestPacket& request) {
    request.sessionKey.Clear();
    const std::span<uint8_t> bytes(reinterpret_cast<uint8_t*>(packet.data()), packet.size());
    // Fields beyond the packet read as 0; the check below ends before such a length counts.
    auto field = [bytes](size_t offset, size_t width) {
        return offset + width <= bytes.size()
                   ? DecodeLength(&bytes[offset], static_cast<int>(width))
                   : 0;
    };
    PacketLengths lengths;
    lengths.received = bytes.size();
    lengths.packet = field(0, kLengthField);
    lengths.digest = static_cast<uint16_t>(field(kDigestLengthAt, kShortField));
    const size_t keyAt = kDigestAt + lengths.digest + kShortField;
    lengths.key = static_cast<uint16_t>(field(keyAt - kShortField, kShortField));
    const size_t textAt = keyAt + lengths.key + kLengthField;
    lengths.text = field(textAt - kLengthField, kLengthField);
    if (!CheckLengths(lengths, peerAddress, log)) return false;

    if (!std::equal(kSignature.begin(), kSignature.end(), &bytes[kSignatureAt])) return false;
    if (!password.Matches(bytes.subspan(kDigestAt, lengths.digest))) {
        TraceWrongPassword(peerAddress, log);
        return false;
    }
    const std::span<uint8_t> key = bytes.subspan(keyAt, lengths.key);
    const std::span<uint8_t> text = bytes.subspan(textAt, lengths.text);
    password.Cipher().Decrypt(key, key.data());
    request.sessionKey = std::string_view(&packet[0] + keyAt, key.size());
    request.cipher.emplace(request.sessionKey.View());
    request.cipher->Decrypt(text, text.data());
    request.text = {&packet[0] + textAt, text.size()};
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
    auto* body = reinterpret_cast<uint8_t*>(sealed.Data()) + kLengthField;
    cipher.Encrypt({body, size}, body);
    text.Wipe();
    return sealed;
}

}  // namespace zot
