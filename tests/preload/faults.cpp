// Loaded into the agent by the system tests: moves its clocks and makes its calls fail.
#include "tests/preload/faults.h"

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

extern char* __progname;

namespace {

using zot::test::CallFault;
using zot::test::FaultControl;
using zot::test::kShort;

// Calls of the runtime's own start, before the mapping exists, find no orders here.
constinit FaultControl none;
constinit FaultControl* control = &none;

// The next definition of the function. No guarded static: memory is needed before those work.
#define REAL(name)                                                     \
    static std::atomic<void*> found{nullptr};                          \
    if (found.load() == nullptr) found.store(dlsym(RTLD_NEXT, #name)); \
    auto* const real = reinterpret_cast<decltype(&::name)>(found.load());

// Programs that the agent starts inherit the library, but no faults.
bool IsAgent() { return std::strcmp(__progname, "zot") == 0; }

__attribute__((constructor)) void Attach() {
    if (!IsAgent()) return;
    const char* path = getenv(zot::test::kFaultControlVariable);
    int fd = path == nullptr ? -1 : openat(AT_FDCWD, path, O_RDWR | O_CLOEXEC);
    if (fd < 0) return;
    void* memory = mmap(nullptr, sizeof(FaultControl), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    if (memory != MAP_FAILED) control = static_cast<FaultControl*>(memory);
}

// Some systems declare their calls with noexcept and some do not; a definition must agree.
#define AS_DECLARED(call) noexcept(noexcept(call))

// A real fault, at once and on this thread. Each order causes one crash.
void CrashIf(std::atomic<bool>& ordered) {
    if (!ordered.exchange(false)) return;
    volatile int* nowhere = nullptr;
    *nowhere = 1;
}

// Whether this call fails; then errno is set.
bool Fails(CallFault& fault) {
    if (!fault.Strikes()) return false;
    errno = fault.error.load();
    return true;
}

// For calls that move bytes: false when the call fails, otherwise `size` is what it may move.
bool MayMove(CallFault& fault, size_t& size) {
    if (!Fails(fault)) return true;
    if (errno != kShort) return false;
    size -= size / 2;
    return true;
}

}  // namespace

extern "C" {

int clock_gettime(clockid_t clock, timespec* now) AS_DECLARED(clock_gettime(clock, now)) {
    REAL(clock_gettime)
    int result = real(clock, now);
    if (clock == CLOCK_MONOTONIC) now->tv_sec += control->clockOffsetSeconds.load();
    if (clock == CLOCK_REALTIME) now->tv_sec += control->dateOffsetSeconds.load();
    return result;
}

time_t time(time_t* result) AS_DECLARED(time(result)) {
    REAL(time)
    time_t now = real(nullptr) + control->dateOffsetSeconds.load();
    if (result != nullptr) *result = now;
    return now;
}

// No <sys/utsname.h>: where uname is an inline function there, it calls __xuname.
int uname(void* name) {
    REAL(uname)
    CrashIf(control->crashInUname);
    return real(name);
}

int __xuname(int size, void* name) {
    REAL(__xuname)
    CrashIf(control->crashInUname);
    return real(size, name);
}

tm* localtime_r(const time_t* time, tm* result) AS_DECLARED(localtime_r(time, result)) {
    REAL(localtime_r)
    CrashIf(control->crashInLocaltime);
    return real(time, result);
}

void* malloc(size_t size) AS_DECLARED(malloc(size)) {
    REAL(malloc)
    return Fails(control->memory) ? nullptr : real(size);
}

void* realloc(void* memory, size_t size) AS_DECLARED(realloc(memory, size)) {
    REAL(realloc)
    return Fails(control->memory) ? nullptr : real(memory, size);
}

int openat(int folder, const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    auto mode = static_cast<mode_t>((flags & O_CREAT) != 0 ? va_arg(arguments, int) : 0);
    va_end(arguments);
    REAL(openat)
    return Fails(control->open) ? -1 : real(folder, path, flags, mode);
}

int open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    auto mode = static_cast<mode_t>((flags & O_CREAT) != 0 ? va_arg(arguments, int) : 0);
    va_end(arguments);
    return openat(AT_FDCWD, path, flags, mode);
}

// What glibc's checked headers turn an open without a mode into.
int __open_2(const char* path, int flags) { return open(path, flags); }

dirent* readdir(DIR* folder) {
    REAL(readdir)
    return Fails(control->list) ? nullptr : real(folder);
}

int stat(const char* path, struct stat* status) AS_DECLARED(stat(path, status)) {
    REAL(stat)
    return Fails(control->look) ? -1 : real(path, status);
}

int lstat(const char* path, struct stat* status) AS_DECLARED(lstat(path, status)) {
    REAL(lstat)
    return Fails(control->look) ? -1 : real(path, status);
}

int fstatat(int folder, const char* path, struct stat* status, int flags)
    AS_DECLARED(fstatat(folder, path, status, flags)) {
    REAL(fstatat)
    return Fails(control->look) ? -1 : real(folder, path, status, flags);
}

int fstat(int fd, struct stat* status) AS_DECLARED(fstat(fd, status)) {
    REAL(fstat)
    return Fails(control->fstat) ? -1 : real(fd, status);
}

void* mmap(void* address, size_t size, int protection, int flags, int fd, off_t offset)
    AS_DECLARED(mmap(address, size, protection, flags, fd, offset)) {
    REAL(mmap)
    return Fails(control->map) ? MAP_FAILED : real(address, size, protection, flags, fd, offset);
}

int fsync(int fd) {
    REAL(fsync)
    return Fails(control->sync) ? -1 : real(fd);
}

int rename(const char* from, const char* to) AS_DECLARED(rename(from, to)) {
    REAL(rename)
    return Fails(control->rename) ? -1 : real(from, to);
}

int pipe2(int* ends, int flags) AS_DECLARED(pipe2(ends, flags)) {
    REAL(pipe2)
    return Fails(control->pipe) ? -1 : real(ends, flags);
}

FILE* fopen(const char* path, const char* mode) {
    REAL(fopen)
    return Fails(control->open) ? nullptr : real(path, mode);
}

DIR* opendir(const char* path) {
    REAL(opendir)
    return Fails(control->open) ? nullptr : real(path);
}

ssize_t read(int fd, void* buffer, size_t size) {
    REAL(read)
    return MayMove(control->read, size) ? real(fd, buffer, size) : -1;
}

ssize_t pread(int fd, void* buffer, size_t size, off_t offset) {
    REAL(pread)
    return MayMove(control->read, size) ? real(fd, buffer, size, offset) : -1;
}

ssize_t write(int fd, const void* buffer, size_t size) {
    REAL(write)
    return MayMove(control->write, size) ? real(fd, buffer, size) : -1;
}

ssize_t recv(int fd, void* buffer, size_t size, int flags) {
    REAL(recv)
    return MayMove(control->receive, size) ? real(fd, buffer, size, flags) : -1;
}

ssize_t send(int fd, const void* buffer, size_t size, int flags) {
    REAL(send)
    return MayMove(control->send, size) ? real(fd, buffer, size, flags) : -1;
}

int getaddrinfo(const char* name, const char* service, const addrinfo* hints, addrinfo** list) {
    REAL(getaddrinfo)
    sleep(static_cast<unsigned>(control->lookupSeconds.load()));
    return real(name, service, hints, list);
}

int socket(int domain, int type, int protocol) AS_DECLARED(socket(domain, type, protocol)) {
    REAL(socket)
    return Fails(control->socket) ? -1 : real(domain, type, protocol);
}

int accept4(int fd, sockaddr* address, socklen_t* size, int flags) {
    REAL(accept4)
    return Fails(control->accept) ? -1 : real(fd, address, size, flags);
}

int poll(pollfd* descriptors, nfds_t count, int timeout) {
    REAL(poll)
    return Fails(control->poll) ? -1 : real(descriptors, count, timeout);
}

int ppoll(pollfd* descriptors, nfds_t count, const timespec* timeout, const sigset_t* mask) {
    REAL(ppoll)
    return Fails(control->poll) ? -1 : real(descriptors, count, timeout, mask);
}

pid_t fork() AS_DECLARED(fork()) {
    REAL(fork)
    return Fails(control->fork) ? -1 : real();
}

// A child of the real one could not return through this function, so it gets memory of its own.
pid_t vfork() AS_DECLARED(vfork()) { return fork(); }

int execve(const char* path, char* const* arguments, char* const* environment)
    AS_DECLARED(execve(path, arguments, environment)) {
    REAL(execve)
    return Fails(control->execute) ? -1 : real(path, arguments, environment);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*entry)(void*),
                   void* argument)
    AS_DECLARED(pthread_create(thread, attributes, entry, argument)) {
    REAL(pthread_create)
    return Fails(control->thread) ? errno : real(thread, attributes, entry, argument);
}

}  // extern "C"
