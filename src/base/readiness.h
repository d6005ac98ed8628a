// An event queue that several threads wait on at once: which descriptors have something to read.
//
// A descriptor is armed for one event: the thread that gets it has the descriptor to itself until
// it arms it again. The queue outlives what was closed without being removed; so a tag is best one
// that never comes back.
#pragma once

#include <cstdint>
#include <optional>

#include "base/owners.h"

namespace zot {

class Readiness {
  public:
    // The tag of a wait that Wake has ended.
    static constexpr uint64_t kWoken = UINT64_MAX;

    // False in a condition, with errno set, when the system grants no queue.
    Readiness() noexcept;
    explicit operator bool() const noexcept { return ready_; }

    // Arm a descriptor, for the first time and after each event: `tag` comes back once from one
    // wait when there is something to read, or the peer has ended. False with errno set on failure.
    bool Add(int descriptor, uint64_t tag) noexcept;
    bool Rearm(int descriptor, uint64_t tag) noexcept;
    // Forgets a descriptor, which must still be open.
    void Remove(int descriptor) noexcept;

    // Ends one wait: one that goes on now, or the next.
    void Wake() noexcept;

    // Waits for one event, at most so many milliseconds (below 0: for ever). Returns its tag;
    // nothing when the time is over.
    std::optional<uint64_t> Wait(int timeoutMs) noexcept;

    // Whether an event is there that nobody has taken yet.
    bool Pending() const noexcept;

  private:
    UniqueFd queue_;
    UniqueFd waker_;  // only where the queue itself cannot be woken
    bool ready_ = false;
};

}  // namespace zot
