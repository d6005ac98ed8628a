// Whether the peer that a thread works for is still there to take the answer.
//
// Long work counts what it does with WorksInVain, which looks at the connection now and then. A
// peer is gone when its connection was reset or its keep-alive failed. One that has only ended its
// sending side still waits for its answer, perhaps for hours.
//
// A thread whose work proves long gives way to others until it is done, so that many walks and
// scans at once leave quick requests as quick as before.
#pragma once

#include <atomic>
#include <cstddef>

namespace zot {

// The connection to one peer, watched by every thread that works for it.
class PeerWatch {
  public:
    explicit PeerWatch(int socket) noexcept : socket_(socket) {}
    PeerWatch(const PeerWatch&) = delete;
    PeerWatch& operator=(const PeerWatch&) = delete;

    // Asks the system, with one call, until the peer was once found gone.
    bool IsGone() noexcept;
    // Whether it was found gone; makes no call.
    bool WasGone() const noexcept { return gone_.load(std::memory_order_relaxed); }

  private:
    const int socket_;
    std::atomic<bool> gone_{false};
};

// Makes the calling thread work for a peer, or for nobody (nullptr), as long as the object lives.
class WorkFor {
  public:
    explicit WorkFor(PeerWatch* peer) noexcept;
    ~WorkFor();
    WorkFor(const WorkFor&) = delete;
    WorkFor& operator=(const WorkFor&) = delete;

    // The peer that the calling thread works for; nullptr for none. A helper thread works for the
    // same one.
    static PeerWatch* Current() noexcept;
    // Gives the calling thread its usual priority again. Async-signal-safe.
    static void ComeForward() noexcept;
    // Whether the calling thread gives way for good, since the system did not give it its priority
    // back after long work.
    static bool StaysBack() noexcept;

  private:
    PeerWatch* before_;
};

// What WorksInVain counts besides bytes: a directory entry, and work that is worth a look at the
// connection by itself.
inline constexpr size_t kEntryWork = 1024;
inline constexpr size_t kLookNow = size_t{4} << 20;

// Counts work, in bytes. Every few MiB it looks, and returns true when the peer has gone and the
// work should end. Never true in a thread that works for nobody.
bool WorksInVain(size_t work = kLookNow) noexcept;

}  // namespace zot
