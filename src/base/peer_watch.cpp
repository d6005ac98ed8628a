#include "base/peer_watch.h"

#include <poll.h>

#include <utility>

namespace zot {
namespace {

thread_local PeerWatch* currentPeer = nullptr;
thread_local size_t workSinceLook = 0;

}  // namespace

bool PeerWatch::IsGone() noexcept {
    if (gone_.load(std::memory_order_relaxed)) return true;
    // With no event asked for, poll reports only errors and the end of both directions.
    pollfd connection{socket_, 0, 0};
    if (poll(&connection, 1, 0) <= 0) return false;
    gone_.store(true, std::memory_order_relaxed);
    return true;
}

WorkFor::WorkFor(PeerWatch* peer) noexcept : before_(std::exchange(currentPeer, peer)) {}

WorkFor::~WorkFor() { currentPeer = before_; }

PeerWatch* WorkFor::Current() noexcept { return currentPeer; }

bool WorksInVain(size_t work) noexcept {
    if (currentPeer == nullptr) return false;
    workSinceLook += work;
    if (workSinceLook < kLookNow) return false;
    // Once the peer is gone every call says so, which ends each loop on the way out.
    if (currentPeer->IsGone()) return true;
    workSinceLook = 0;
    return false;
}

}  // namespace zot
