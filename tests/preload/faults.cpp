// Loaded into the agent by the system tests: lets them move its clock and break what is under it.
#include "tests/preload/faults.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>

namespace {

using zot::test::FaultControl;

FaultControl& Control() {
    static FaultControl* control = [] {
        static FaultControl none;
        const char* path = getenv(zot::test::kFaultControlVariable);
        int fd = path == nullptr ? -1 : open(path, O_RDWR | O_CLOEXEC);
        if (fd < 0) return &none;
        void* memory =
            mmap(nullptr, sizeof(FaultControl), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        close(fd);
        return memory == MAP_FAILED ? &none : static_cast<FaultControl*>(memory);
    }();
    return *control;
}

template <typename Function>
Function* Real(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

// A real fault, at once and on this thread. Each order to crash is good for one crash.
void CrashIf(std::atomic<bool>& ordered) {
    if (!ordered.exchange(false)) return;
    volatile int* nowhere = nullptr;
    *nowhere = 1;
}

}  // namespace

extern "C" {

int clock_gettime(clockid_t clock, timespec* now) noexcept {
    static auto* real = Real<int(clockid_t, timespec*)>("clock_gettime");
    int result = real(clock, now);
    if (clock == CLOCK_MONOTONIC) now->tv_sec += Control().clockOffsetSeconds.load();
    return result;
}

int uname(utsname* name) noexcept {
    static auto* real = Real<int(utsname*)>("uname");
    CrashIf(Control().crashInUname);
    return real(name);
}

tm* localtime_r(const time_t* time, tm* result) noexcept {
    static auto* real = Real<tm*(const time_t*, tm*)>("localtime_r");
    CrashIf(Control().crashInLocaltime);
    return real(time, result);
}

pid_t fork() noexcept {
    static auto* real = Real<pid_t()>("fork");
    if (!Control().failFork.load()) return real();
    errno = EAGAIN;
    return -1;
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*entry)(void*),
                   void* argument) noexcept {
    static auto* real =
        Real<int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)>("pthread_create");
    if (Control().failThreads.load()) return EAGAIN;
    return real(thread, attributes, entry, argument);
}

}  // extern "C"
