// <sys/event.h> needs the types.
#include <sys/types.h>
//
#include <signal.h>
#include <sys/event.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
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
    int result = waitid(P_PID, pid, &info, WEXITED | WNOHANG | WNOWAIT);
    return result != 0 || info.si_pid == pid;
}

std::chrono::nanoseconds TimeUntil(Clock::time_point deadline) {
    return std::max<std::chrono::nanoseconds>(deadline - Clock::now(), {});
}

}  // namespace

bool WaitChild(pid_t pid, int timeoutMs) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    // A queue is not inherited over fork, so it needs no close-on-exec flag.
    UniqueFd queue(kqueue());
    struct kevent watch {};
    EV_SET(&watch, static_cast<uintptr_t>(pid), EVFILT_PROC, EV_ADD, NOTE_EXIT, 0, nullptr);
    // A child that has ended already cannot always be watched, and a process out of descriptors
    // has no queue; then the child is asked for at short intervals.
    bool watching = queue && kevent(queue.Get(), &watch, 1, nullptr, 0, nullptr) == 0;
    for (;;) {
        if (HasEnded(pid)) return true;
        auto left = TimeUntil(deadline);
        if (left.count() == 0) return false;
        if (!watching)
            left = std::min<std::chrono::nanoseconds>(left, std::chrono::milliseconds(4));
        timespec limit = {static_cast<time_t>(left.count() / 1000000000),
                          static_cast<long>(left.count() % 1000000000)};
        if (watching) {
            struct kevent event {};
            kevent(queue.Get(), nullptr, 0, &event, 1, &limit);
        } else {
            nanosleep(&limit, nullptr);
        }
    }
}

bool CloseDescriptorsFrom(int first) noexcept {
    closefrom(first);
    return true;
}

void ResetSignals() noexcept {
    struct sigaction standard {};
    standard.sa_handler = SIG_DFL;
    // The thread library's sigaction keeps the handlers in a table, which a child of vfork shares
    // with the agent; the system call knows only the child.
    for (int i = 1; i < kClassicSignals; ++i) syscall(SYS_sigaction, i, &standard, nullptr);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
}

}  // namespace zot
