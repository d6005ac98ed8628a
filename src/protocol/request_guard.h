// What a request needs besides the right password, where the settings ask for more: a key that
// nobody can guess, and that the request was not seen a moment ago.
//
// Anybody who listens can copy the password's digest and an empty key from any packet, and so ask
// anything. If keys must have some length, a listener can only repeat what was heard.
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
    // The most requests that are remembered; when there are that many, further ones are refused.
    static constexpr size_t kMostRemembered = size_t{1} << 17;

    // Whether the opened request may be answered, at `now` seconds of MonotonicSeconds(); if so,
    // remembers it. The failure log gives the reason if not.
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

    std::mutex seenMutex_;  // guards what follows
    std::unordered_set<Digest, Start> digests_;
    std::deque<Seen> seen_;  // in the order of their arrival
};

}  // namespace zot
