// Whether the peer for whom a thread works is still there to take the answer.
//
// Work that can be long counts what it does with WorksInVain, which looks at the connection now and
// then. Gone is a peer whose connection was reset or whose keep-alive failed; one that has only
// ended its sending side still waits for its answer, perhaps for hours.
#pragma once

#include <atomic>
#include <cstddef>

namespace zot {

// The connection to one peer, looked at by every thread that works for it.
class PeerWatch {
  public:
    explicit PeerWatch(int socket) noexcept : socket_(socket) {}
    PeerWatch(const PeerWatch&) = delete;
    PeerWatch& operator=(const PeerWatch&) = delete;

    // Asks the system, with one call, until the peer has gone once.
    bool IsGone() noexcept;
    // Whether it was found gone; asks nobody.
    bool WasGone() const noexcept { return gone_.load(std::memory_order_relaxed); }

  private:
    const int socket_;
    std::atomic<bool> gone_{false};
};

// Makes the calling thread work for a peer, or for none (nullptr), as long as the object lives.
class WorkFor {
  public:
    explicit WorkFor(PeerWatch* peer) noexcept;
    ~WorkFor();
    WorkFor(const WorkFor&) = delete;
    WorkFor& operator=(const WorkFor&) = delete;

    // For whom the calling thread works; nullptr for nobody. A thread that helps works for the
    // same.
    static PeerWatch* Current() noexcept;

  private:
    PeerWatch* before_;
};

// What else than a byte costs, for WorksInVain: a directory entry that is looked at, and what is
// worth a look at the connection by itself.
inline constexpr size_t kEntryWork = 1024;
inline constexpr size_t kLookNow = size_t{4} << 20;

// Counts work, in bytes; after every few MiB true when the peer has gone and the work should end.
// Never true in a thread that works for nobody.
bool WorksInVain(size_t work = kLookNow) noexcept;

}  // namespace zot
