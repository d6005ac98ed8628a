#include <errno.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>
#include <optional>

#include "base/owners.h"
#include "base/platform/readiness.h"

namespace zot {
namespace {

bool Control(int queue, int operation, int descriptor, uint64_t tag,
             uint32_t events = EPOLLIN) noexcept {
    epoll_event event{};
    event.events = events | EPOLLONESHOT;
    event.data.u64 = tag;
    return epoll_ctl(queue, operation, descriptor, &event) == 0;
}

}  // namespace

Readiness::Readiness() noexcept
    : queue_(epoll_create1(EPOLL_CLOEXEC)), waker_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    epoll_event event{};
    // Edge-triggered: each write ends one wait, and nobody needs to read.
    event.events = EPOLLIN | EPOLLET;
    event.data.u64 = kWoken;
    ready_ = queue_ && waker_ && epoll_ctl(queue_.Get(), EPOLL_CTL_ADD, waker_.Get(), &event) == 0;
}

bool Readiness::Add(int descriptor, uint64_t tag) noexcept {
    return Control(queue_.Get(), EPOLL_CTL_ADD, descriptor, tag);
}

bool Readiness::Rearm(int descriptor, uint64_t tag) noexcept {
    return Control(queue_.Get(), EPOLL_CTL_MOD, descriptor, tag);
}

bool Readiness::AddWriter(int descriptor, uint64_t tag) noexcept {
    return Control(queue_.Get(), EPOLL_CTL_ADD, descriptor, tag, EPOLLOUT);
}

void Readiness::Remove(int descriptor) noexcept {
    epoll_ctl(queue_.Get(), EPOLL_CTL_DEL, descriptor, nullptr);
}

void Readiness::Wake() noexcept {
    const uint64_t one = 1;
    [[maybe_unused]] ssize_t ignored = write(waker_.Get(), &one, sizeof one);
}

std::optional<uint64_t> Readiness::Wait(int timeoutMs) noexcept {
    epoll_event event{};
    int count = epoll_wait(queue_.Get(), &event, 1, timeoutMs);
    if (count > 0) return uint64_t{event.data.u64};
    if (count < 0) return kWoken;
    return std::nullopt;
}

bool Readiness::Pending() const noexcept {
    pollfd entry = {queue_.Get(), POLLIN, 0};
    return poll(&entry, 1, 0) > 0;
}

}  // namespace zot
