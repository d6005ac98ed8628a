// <sys/event.h> needs the types.
#include <sys/types.h>
//
#include <signal.h>
#include <string.h>
#include <sys/event.h>
#include <sys/mman.h>
#include <sys/procctl.h>
#include <sys/syscall.h>
#include <sys/sysctl.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>

#include "base/owners.h"
#include "base/platform/child.h"

namespace zot {
namespace {

constexpr int kClassicSignals = 32;

using Clock = std::chrono::steady_clock;

bool HasEnded(pid_t pid) {
    siginfo_t info{};
    int result = waitid(P_PID, pid, &info, WEXITED | WNOHANG | WNOWAIT);
    return result != 0 || info.si_pid == pid;
}

// NOTE_EXIT is reported once, and a moment before the child can be reaped: the kernel is not done
// with it yet.
void WaitForLastSteps(pid_t pid) {
    siginfo_t info{};
    while (waitid(P_PID, pid, &info, WEXITED | WNOWAIT) != 0 && errno == EINTR) {
    }
}

std::chrono::nanoseconds TimeUntil(Clock::time_point deadline) {
    return std::max<std::chrono::nanoseconds>(deadline - Clock::now(), {});
}

// Whether the environment of a process, a list of texts that end in NUL, has this entry.
bool EnvironmentHolds(pid_t pid, const char* entry) noexcept {
    static char environment[256 * 1024];  // no process has more
    int query[] = {CTL_KERN, KERN_PROC, KERN_PROC_ENV, pid};
    size_t size = sizeof environment - 1;
    if (sysctl(query, 4, environment, &size, nullptr, 0) != 0) return false;
    environment[size] = '\0';
    for (const char* text = environment; text < environment + size; text += strlen(text) + 1) {
        if (strcmp(text, entry) == 0) return true;
    }
    return false;
}

}  // namespace

bool WaitChild(pid_t pid, int timeoutMs) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    // A queue is not inherited over fork, so it needs no close-on-exec flag.
    UniqueFd queue(kqueue());
    struct kevent watch {};
    EV_SET(&watch, static_cast<uintptr_t>(pid), EVFILT_PROC, EV_ADD, NOTE_EXIT, 0, nullptr);
    // A child that has already ended cannot always be watched, and a process out of descriptors
    // gets no queue; then this asks for the child at short intervals.
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
            if (kevent(queue.Get(), nullptr, 0, &event, 1, &limit) > 0) {
                WaitForLastSteps(pid);
                return true;
            }
        } else {
            nanosleep(&limit, nullptr);
        }
    }
}

bool AdoptsOrphans() {
    procctl_reaper_status status{};
    return getpid() == 1 || (procctl(P_PID, getpid(), PROC_REAP_STATUS, &status) == 0 &&
                             (status.rs_flags & REAPER_STATUS_OWNED) != 0);
}

bool CloseDescriptorsFrom(int first) noexcept {
    closefrom(first);
    return true;
}

void SetProcessTitle(char**, char**, const char* title) noexcept { setproctitle("-%s", title); }

int SignalProcessesWith(const char* entry, int number) noexcept {
    int query[] = {CTL_KERN, KERN_PROC, KERN_PROC_PROC, 0};
    size_t size = 0;
    if (sysctl(query, 3, nullptr, &size, nullptr, 0) != 0) return -1;
    size += size / 4;  // more may have started since
    const size_t mapped = size;
    void* memory = mmap(nullptr, mapped, PROT_READ | PROT_WRITE, MAP_ANON | MAP_PRIVATE, -1, 0);
    if (memory == MAP_FAILED) return -1;
    int found = -1;
    if (sysctl(query, 3, memory, &size, nullptr, 0) == 0) {
        found = 0;
        const auto* processes = static_cast<const kinfo_proc*>(memory);
        for (size_t i = 0; i < size / sizeof(kinfo_proc); ++i) {
            pid_t pid = processes[i].ki_pid;
            if (pid == getpid() || processes[i].ki_stat == SZOMB) continue;
            if (!EnvironmentHolds(pid, entry)) continue;
            ++found;
            if (number != 0) kill(pid, number);
        }
    }
    munmap(memory, mapped);
    return found;
}

void ResetSignals() noexcept {
    struct sigaction standard {};
    standard.sa_handler = SIG_DFL;
    // The thread library's sigaction keeps the handlers in a table, which a child of vfork shares
    // with the agent; the system call affects only the child.
    for (int i = 1; i < kClassicSignals; ++i) syscall(SYS_sigaction, i, &standard, nullptr);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
}

}  // namespace zot
