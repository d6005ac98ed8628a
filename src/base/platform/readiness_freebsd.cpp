// <sys/event.h> needs the types.
#include <sys/types.h>
//
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/event.h>
#include <time.h>

#include <cstdint>
#include <optional>

#include "base/owners.h"
#include "base/platform/readiness.h"

namespace zot {
namespace {

constexpr uintptr_t kWakeEvent = 0;

bool Change(int queue, const struct kevent& change) noexcept {
    int result;
    do {
        result = kevent(queue, &change, 1, nullptr, 0, nullptr);
    } while (result < 0 && errno == EINTR);
    return result == 0;
}

// Tags travel where the system keeps 64 bits for the program with each event: a pointer is too
// narrow on a 32-bit processor. They stay as they were when the event was added.
constexpr int kTag = 2;

bool Arm(int queue, int descriptor, uint64_t tag, short filter = EVFILT_READ) noexcept {
    struct kevent change;
    // One event, then disabled until armed again.
    EV_SET(&change, static_cast<uintptr_t>(descriptor), filter, EV_ADD | EV_ENABLE | EV_DISPATCH, 0,
           0, nullptr);
    change.ext[kTag] = tag;
    return Change(queue, change);
}

}  // namespace

Readiness::Readiness() noexcept : queue_(kqueue()) {
    // Not inherited over fork, but a restart would keep it.
    if (queue_) fcntl(queue_.Get(), F_SETFD, FD_CLOEXEC);
    struct kevent change;
    EV_SET(&change, kWakeEvent, EVFILT_USER, EV_ADD | EV_CLEAR, 0, 0, nullptr);
    change.ext[kTag] = kWoken;
    ready_ = queue_ && Change(queue_.Get(), change);
}

bool Readiness::Add(int descriptor, uint64_t tag) noexcept {
    return Arm(queue_.Get(), descriptor, tag);
}

bool Readiness::Rearm(int descriptor, uint64_t tag) noexcept {
    return Arm(queue_.Get(), descriptor, tag);
}

bool Readiness::AddWriter(int descriptor, uint64_t tag) noexcept {
    return Arm(queue_.Get(), descriptor, tag, EVFILT_WRITE);
}

void Readiness::Remove(int descriptor) noexcept {
    struct kevent change;
    EV_SET(&change, static_cast<uintptr_t>(descriptor), EVFILT_READ, EV_DELETE, 0, 0, nullptr);
    Change(queue_.Get(), change);
}

void Readiness::Wake() noexcept {
    struct kevent change;
    EV_SET(&change, kWakeEvent, EVFILT_USER, 0, NOTE_TRIGGER, 0, nullptr);
    Change(queue_.Get(), change);
}

std::optional<uint64_t> Readiness::Wait(int timeoutMs) noexcept {
    struct kevent event;
    timespec limit = {timeoutMs / 1000, timeoutMs % 1000 * 1000000L};
    int count = kevent(queue_.Get(), nullptr, 0, &event, 1, timeoutMs < 0 ? nullptr : &limit);
    if (count > 0) return uint64_t{event.ext[kTag]};
    if (count < 0) return kWoken;
    return std::nullopt;
}

bool Readiness::Pending() const noexcept {
    pollfd entry = {queue_.Get(), POLLIN, 0};
    return poll(&entry, 1, 0) > 0;
}

}  // namespace zot
