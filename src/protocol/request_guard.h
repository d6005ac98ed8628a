// What a request must have besides the right password, where the settings ask for more: a key that
// nobody guesses, and that it was not seen a moment ago.
//
// The password's digest and an empty key can be copied from any packet on the wire, so that whoever
// listens could ask what he likes; with keys of some length he can only repeat what he heard.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string_view>
#include <unordered_set>

#include "config/log.h"
#include "config/settings.h"
#include "protocol/packet.h"

namespace zot {

class RequestGuard {
  public:
    // The most requests that are remembered; while so many are, further ones are refused.
    static constexpr size_t kMostRemembered = size_t{1} << 17;

    // Whether the opened request may be answered, at `now` seconds of MonotonicSeconds(); remembers
    // it then. The failure log tells why not.
    bool Admits(const RequestPacket& request, const AgentSettings& settings, uint32_t peerAddress,
                Log& log, int64_t now);

  private:
    using Digest = std::array<uint8_t, 16>;
    struct Start {
        size_t operator()(const Digest& digest) const noexcept;
    };
    struct Seen {
        Digest digest;
        int64_t at;
    };
    enum class Memory { kNew, kSeen, kFull };

    static Digest DigestOf(const RequestPacket& request);
    Memory Remember(const Digest& digest, int64_t now, int64_t seconds);

    std::mutex seenMutex_;  // what follows
    std::unordered_set<Digest, Start> digests_;
    std::deque<Seen> seen_;  // in the order of their coming
};

}  // namespace zot
