#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <sys/wait.h>
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
    int result = waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT);
    return result != 0 || info.si_pid == pid;
}

int MillisecondsUntil(Clock::time_point deadline) {
    auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    return static_cast<int>(std::max<int64_t>(left.count(), 0));
}

// The process that a folder of /proc is named after; 0 for other names.
pid_t ProcessNumber(const char* name) noexcept {
    pid_t pid = 0;
    for (; *name >= '0' && *name <= '9'; ++name) pid = pid * 10 + (*name - '0');
    return *name == '\0' ? pid : 0;
}

// Whether the environment of a process, a list of texts that end in NUL, has this entry.
bool EnvironmentHolds(int proc, const char* pid, const char* entry) noexcept {
    char path[32] = "";
    strncat(path, pid, 15);
    strcat(path, "/environ");
    UniqueFd file(openat(proc, path, O_RDONLY | O_CLOEXEC));
    char buffer[4096];
    size_t matched = 0;  // bytes of the entry, counted from the start of a text
    bool differs = false;
    for (;;) {
        ssize_t count = file ? read(file.Get(), buffer, sizeof buffer) : -1;
        if (count <= 0) return false;
        for (ssize_t i = 0; i < count; ++i) {
            if (buffer[i] == '\0') {
                if (!differs && matched > 0 && entry[matched] == '\0') return true;
                matched = 0;
                differs = false;
            } else if (!differs && buffer[i] == entry[matched]) {
                ++matched;
            } else {
                differs = true;
            }
        }
    }
}

}  // namespace

bool WaitChild(pid_t pid, int timeoutMs) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    UniqueFd handle(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
    pollfd waited = {handle.Get(), POLLIN, 0};
    // An old kernel, a sandbox or a process out of descriptors gives no handle; then this asks for
    // the child at short intervals.
    constexpr int kLongestInterval = 8;
    for (int interval = 1;; interval = std::min(2 * interval, kLongestInterval)) {
        int left = MillisecondsUntil(deadline);
        int result = handle ? poll(&waited, 1, left) : poll(nullptr, 0, std::min(left, interval));
        if (handle ? result > 0 : HasEnded(pid)) return true;
        if (left == 0 && result == 0) return false;
    }
}

bool AdoptsOrphans() {
    int asked = 0;
    return getpid() == 1 || (prctl(PR_GET_CHILD_SUBREAPER, &asked) == 0 && asked != 0);
}

bool CloseDescriptorsFrom(int first) noexcept {
    return syscall(SYS_close_range, static_cast<unsigned>(first), ~0U, 0U) == 0;
}

void SetProcessTitle(char** argv, char** envp, const char* title) noexcept {
    // The kernel shows the memory of the arguments, and reads on into the environment after it when
    // the last byte of the arguments is not NUL.
    char* start = argv[0];
    char* end = start;
    for (; *argv != nullptr; ++argv) {
        if (*argv == end) end += strlen(end) + 1;
    }
    const char* argumentsEnd = end;
    for (; *envp != nullptr; ++envp) {
        if (*envp == end) end += strlen(end) + 1;
    }
    if (end == start) return;
    memset(start, 0, static_cast<size_t>(argumentsEnd - start));
    const size_t length = std::min(strlen(title), static_cast<size_t>(end - start - 1));
    memcpy(start, title, length);
    start[length] = '\0';
    prctl(PR_SET_NAME, title);
}

int SignalProcessesWith(const char* entry, int number) noexcept {
    // The C library's way of reading folders allocates memory.
    struct Record {
        uint64_t inode;
        int64_t offset;
        uint16_t size;
        unsigned char type;
        char name[1];
    };
    UniqueFd folder(open("/proc", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder) return -1;
    int found = 0;
    alignas(Record) char buffer[8192];
    for (;;) {
        long count = syscall(SYS_getdents64, folder.Get(), buffer, sizeof buffer);
        if (count <= 0) return count < 0 ? -1 : found;
        for (long at = 0; at < count;) {
            const auto* record = reinterpret_cast<const Record*>(buffer + at);
            at += record->size;
            pid_t pid = ProcessNumber(record->name);
            if (pid <= 0 || pid == getpid()) continue;
            if (!EnvironmentHolds(folder.Get(), record->name, entry)) continue;
            ++found;
            if (number != 0) kill(pid, number);
        }
    }
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
