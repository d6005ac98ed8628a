#include "base/peer_watch.h"

#include <poll.h>

#include <utility>

#include "base/platform/system.h"

namespace zot {
namespace {

thread_local PeerWatch* currentPeer = nullptr;
thread_local size_t workSinceLook = 0;

// What is worth standing back for: a fraction of a millisecond of looking at entries.
constexpr size_t kLongWork = size_t{512} << 10;

// Enough that whoever wakes up for a quick request comes first, and still a fair part of a busy
// machine.
constexpr int kStandBack = 5;

thread_local bool standsBack = false;

int OwnNice() noexcept {
    static const int own = ThreadNice();  // threads inherit it, so all have the same
    return own;
}

void StandBack() noexcept {
    if (!standsBack) standsBack = SetThreadNice(OwnNice() + kStandBack);
}

}  // namespace

bool PeerWatch::IsGone() noexcept {
    if (gone_.load(std::memory_order_relaxed)) return true;
    // With no event asked for, poll reports only errors and the end of both directions.
    pollfd connection{socket_, 0, 0};
    if (poll(&connection, 1, 0) <= 0) return false;
    gone_.store(true, std::memory_order_relaxed);
    return true;
}

WorkFor::WorkFor(PeerWatch* peer) noexcept : before_(std::exchange(currentPeer, peer)) {
    if (before_ == nullptr) workSinceLook = 0;
}

WorkFor::~WorkFor() {
    currentPeer = before_;
    if (before_ == nullptr) ComeForward();
}

PeerWatch* WorkFor::Current() noexcept { return currentPeer; }

void WorkFor::ComeForward() noexcept {
    if (standsBack) standsBack = !SetThreadNice(OwnNice());
}

bool WorkFor::StaysBack() noexcept { return standsBack && currentPeer == nullptr; }

bool WorksInVain(size_t work) noexcept {
    if (currentPeer == nullptr) return false;
    workSinceLook += work;
    // A thread that only waits, for a child or a socket, is in nobody's way, and children inherit.
    if (workSinceLook >= kLongWork && work < kLookNow) StandBack();
    if (workSinceLook < kLookNow) return false;
    // Once the peer is gone every call says so, which ends each loop on the way out.
    if (currentPeer->IsGone()) return true;
    workSinceLook = 0;
    return false;
}

}  // namespace zot
