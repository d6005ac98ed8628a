#include "protocol/packet_intake.h"

#include <algorithm>
#include <type_traits>

#include "protocol/length_codec.h"

namespace zot {

using namespace packet_layout;

PacketState PacketIntake::Take(std::string_view bytes, const PasswordKey& password) {
    if (state_ == State::kUnknown) {
        const auto received = static_cast<size_t>(lengths_.received);
        const std::string_view part = bytes.substr(0, head_.size() - received);
        part.copy(head_.data() + received, part.size());
        lengths_.received += part.size();
        bytes.remove_prefix(part.size());
        Judge(password);
    }
    if (state_ == State::kKnown) Keep(bytes);
    if (state_ == State::kForgotten) Note(bytes);
    return StateOfPacket();
}

// Decides about the peer as soon as its first bytes allow that.
void PacketIntake::Judge(const PasswordKey& password) {
    const auto* head = reinterpret_cast<const uint8_t*>(head_.data());
    if (lengths_.received >= kLengthField) lengths_.packet = DecodeLength(head, kLengthField);
    if (lengths_.received < kDigestAt) return;
    lengths_.digest = static_cast<uint16_t>(DecodeLength(head + kDigestLengthAt, kShortField));
    signatureRight_ = std::equal(kSignature.begin(), kSignature.end(), head + kSignatureAt);
    const bool possible = signatureRight_ && lengths_.digest == password.DigestSize();
    if (possible && lengths_.received < kDigestAt + lengths_.digest) return;
    const std::string_view kept(head_.data(), static_cast<size_t>(lengths_.received));
    lengths_.received = 0;
    if (possible && password.Matches({head + kDigestAt, lengths_.digest})) {
        state_ = State::kKnown;
        Keep(kept);
    } else {
        state_ = State::kForgotten;
        Note(kept);
    }
}

// Grows with what has really arrived, never with what was announced.
void PacketIntake::Keep(std::string_view bytes) {
    const size_t size = static_cast<size_t>(packet_.Length()) + bytes.size();
    if (size > packet_.Capacity()) packet_.Reserve(std::max(size, size_t{packet_.Capacity()} * 2));
    packet_.Append(bytes);
    lengths_.received += bytes.size();
}

// Picks the lengths out of the passing bytes.
void PacketIntake::Note(std::string_view bytes) {
    const uint64_t start = lengths_.received;
    auto pick = [&](uint64_t offset, size_t width, auto& field) {
        for (size_t i = 0; i < width; ++i) {
            if (offset + i < start || offset + i >= start + bytes.size()) continue;
            const auto byte = static_cast<uint8_t>(bytes[static_cast<size_t>(offset + i - start)]);
            field = static_cast<std::remove_reference_t<decltype(field)>>(field | uint32_t{byte}
                                                                                      << (8 * i));
        }
    };
    const uint64_t keyLengthAt = kDigestAt + lengths_.digest;
    pick(keyLengthAt, kShortField, lengths_.key);
    lengths_.received += bytes.size();
    // The place of the text's length is known only with the whole length of the key.
    if (lengths_.received >= keyLengthAt + kShortField) {
        pick(keyLengthAt + kShortField + lengths_.key, kLengthField, lengths_.text);
    }
}

PacketState PacketIntake::StateOfPacket() const {
    if (lengths_.received < kLengthField) return PacketState::kIncomplete;
    const uint64_t whole = uint64_t{lengths_.packet} + kLengthField;
    if (whole > kMaxPacketSize) return PacketState::kTooLarge;
    const bool complete = lengths_.received >= std::max<uint64_t>(kMinPacketSize, whole);
    return complete ? PacketState::kComplete : PacketState::kIncomplete;
}

bool PacketIntake::Open(const PasswordKey& password, uint32_t peerAddress, Log& log,
                        RequestPacket& request) {
    if (state_ == State::kKnown) {
        const auto size = static_cast<size_t>(packet_.Length());
        return DecodeRequest({packet_.Data(), size}, password, peerAddress, log, request);
    }
    if (CheckLengths(lengths_, peerAddress, log) && signatureRight_)
        TraceWrongPassword(peerAddress, log);
    return false;
}

void PacketIntake::Wipe() noexcept { packet_.Wipe(); }

}  // namespace zot
