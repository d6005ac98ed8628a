#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>

#include "base/owners.h"
#include "base/platform_child.h"

namespace zot {
namespace {

constexpr int kClassicSignals = 32;

using Clock = std::chrono::steady_clock;

bool HasEnded(pid_t pid) {
    siginfo_t info{};
    int result = waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT);
    return result != 0 || info.si_pid == pid;
}

int MillisecondsUntil(Clock::time_point deadline) {
    auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    return static_cast<int>(std::max<int64_t>(left.count(), 0));
}

}  // namespace

bool WaitChild(pid_t pid, int timeoutMs) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    UniqueFd handle(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
    pollfd waited = {handle.Get(), POLLIN, 0};
    // An old kernel, a sandbox or a process out of descriptors gives no handle; then the child is
    // asked for at short intervals.
    constexpr int kLongestInterval = 8;
    for (int interval = 1;; interval = std::min(2 * interval, kLongestInterval)) {
        int left = MillisecondsUntil(deadline);
        int result = handle ? poll(&waited, 1, left) : poll(nullptr, 0, std::min(left, interval));
        if (handle ? result > 0 : HasEnded(pid)) return true;
        if (left == 0 && result == 0) return false;
    }
}

bool CloseDescriptorsFrom(int first) noexcept {
    return syscall(SYS_close_range, static_cast<unsigned>(first), ~0U, 0U) == 0;
}

void ResetSignals() noexcept {
    struct sigaction standard {};
    standard.sa_handler = SIG_DFL;
    for (int i = 1; i < kClassicSignals; ++i) sigaction(i, &standard, nullptr);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
}

}  // namespace zot
