#include "base/files.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>

#include <cstdio>
#include <string>

#include "base/clock.h"

namespace zot {
namespace {

// The system breaks a lease by itself after a while, usually 45 seconds.
constexpr int kLeaseTries = 6000;
constexpr int kLeaseIntervalMs = 10;

int OpenAtOnce(const char* path, int flags) {
    return open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC | flags);
}

// Somebody who plants a name again and again loses one of these races.
constexpr int kPlantTries = 100;

void PutAside(const char* path) {
    struct stat status {};
    if (lstat(path, &status) != 0 || !S_ISDIR(status.st_mode)) return;
    const std::string aside = std::string(path) + "." + std::to_string(MonotonicMs());
    [[maybe_unused]] int renamed = rename(path, aside.c_str());
}

bool Lock(const UniqueFd& file) { return flock(file.Get(), LOCK_EX | LOCK_NB) == 0; }

// Whether a process that may do so holds the file of that name; otherwise `old` has its lock, if
// there is one to be had. A file with a second name is somebody else's.
bool IsHeld(const char* path, UniqueFd& old) {
    old.Reset(open(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!old) return errno == EACCES;
    struct stat status {};
    if (fstat(old.Get(), &status) != 0 || !S_ISREG(status.st_mode) || status.st_nlink != 1 ||
        (status.st_uid != geteuid() && status.st_uid != 0)) {
        return false;
    }
    return LeadsTo(path, old.Get()) && !Lock(old) && errno == EWOULDBLOCK;
}

}  // namespace

UniqueFd OpenRegularFile(const char* path, struct stat& status, int flags) {
    // Merely opening a tape, or the reading end of a pipe, already does something to it.
    if (!IsRegularFile(path)) return UniqueFd();
    UniqueFd fd(OpenAtOnce(path, flags));
    // The first try asks the holder of a write lease, usually a file server, to give it up. A
    // blocking open would wait for that too, but also for ever on a fifo that has taken the file's
    // place.
    for (int i = 0; !fd && errno == EWOULDBLOCK && i < kLeaseTries; ++i) {
        poll(nullptr, 0, kLeaseIntervalMs);
        fd.Reset(OpenAtOnce(path, flags));
    }
    if (fd && (fstat(fd.Get(), &status) != 0 || !S_ISREG(status.st_mode))) fd.Reset();
    return fd;
}

UniqueFd CreateExclusively(const char* path) {
    return UniqueFd(open(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
}

UniqueFd CreateAnew(const char* path) {
    UniqueFd file;
    for (int i = 0; i < kPlantTries && !file; ++i) {
        if (unlink(path) != 0 && errno != ENOENT) PutAside(path);
        file = CreateExclusively(path);
        if (!file && errno != EEXIST) break;
    }
    return file;
}

bool LeadsTo(const char* path, int fd) noexcept {
    struct stat named {};
    struct stat opened {};
    return lstat(path, &named) == 0 && fstat(fd, &opened) == 0 && named.st_dev == opened.st_dev &&
           named.st_ino == opened.st_ino;
}

UniqueFd CreateLocked(const char* path) {
    // The lock on the old file is kept until the new one is made, so two processes that come at
    // once cannot both succeed.
    UniqueFd old;
    if (IsHeld(path, old)) return UniqueFd();
    UniqueFd file = CreateAnew(path);
    if (file && Lock(file) && LeadsTo(path, file.Get())) return file;
    return UniqueFd();
}

}  // namespace zot
