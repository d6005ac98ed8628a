// Collects the bytes of one connection until they are a whole packet, received in any number of
// parts.
//
// A peer has proved nothing before its password digest has arrived: until then 24 bytes are kept,
// and of a peer whose digest is wrong nothing but a count and the lengths for the trace log.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "base/vystring.h"
#include "config/log.h"
#include "protocol/packet.h"

namespace zot {

class PacketIntake {
  public:
    // Takes the bytes of one receive, and judges what has arrived so far by the announced length.
    PacketState Take(std::string_view bytes, const PasswordKey& password);

    // Whether nothing has arrived yet.
    bool Empty() const { return lengths_.received == 0; }
    // Whether the peer has not shown the right digest, yet or ever.
    bool IsStranger() const { return state_ != State::kKnown; }
    // Bytes of memory that this holds besides itself.
    size_t Held() const { return packet_.Capacity(); }

    // Opens a complete packet as DecodeRequest does.
    bool Open(const PasswordKey& password, uint32_t peerAddress, Log& log, RequestPacket& request);
    // Overwrites the held bytes.
    void Wipe() noexcept;

  private:
    static constexpr size_t kHeadSize = packet_layout::kDigestAt + 16;
    enum class State : uint8_t {
        kUnknown,    // the bytes so far are in head_
        kKnown,      // ... in packet_
        kForgotten,  // ... nowhere
    };

    void Judge(const PasswordKey& password);
    void Keep(std::string_view bytes);
    void Note(std::string_view bytes);
    PacketState StateOfPacket() const;

    PacketLengths lengths_;  // all but the first are read only where the packet itself is not kept
    State state_ = State::kUnknown;
    bool signatureRight_ = false;
    std::array<char, kHeadSize> head_;
    VyString packet_;
};

}  // namespace zot
