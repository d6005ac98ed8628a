// An event queue that several threads wait on at once: which descriptors have something to read.
//
// A descriptor is armed for one event: the thread that gets it has the descriptor to itself until
// it arms it again. The queue may still report a descriptor that was closed without being removed,
// so use tags that never come back.
#pragma once

#include <cstdint>
#include <optional>

#include "base/owners.h"

namespace zot {

class Readiness {
  public:
    // What Wait returns when Wake has ended it.
    static constexpr uint64_t kWoken = UINT64_MAX;

    // Tests false, with errno set, when the system grants no queue.
    Readiness() noexcept;
    explicit operator bool() const noexcept { return ready_; }

    // Arm a descriptor, for the first time and, with the same tag, again after each event. One wait
    // returns `tag`, once, when there is something to read or the peer has ended. False with errno
    // set on failure.
    bool Add(int descriptor, uint64_t tag) noexcept;
    bool Rearm(int descriptor, uint64_t tag) noexcept;
    // Arms a new descriptor for one event, too: it takes data again, or has come to connect or not.
    bool AddWriter(int descriptor, uint64_t tag) noexcept;
    // Forgets a descriptor, which must still be open.
    void Remove(int descriptor) noexcept;

    // Ends one wait: the current one, or the next.
    void Wake() noexcept;

    // Waits for one event, at most `timeoutMs` (below 0: for ever). Returns its tag, nothing when
    // the time is over.
    std::optional<uint64_t> Wait(int timeoutMs) noexcept;

    // Whether there is an event that nobody has taken yet.
    bool Pending() const noexcept;
    // For poll: readable while there is such an event.
    int Descriptor() const noexcept { return queue_.Get(); }

  private:
    UniqueFd queue_;
    UniqueFd waker_;  // only where the queue itself cannot be woken
    bool ready_ = false;
};

}  // namespace zot
