#include "base/held_lock.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>

namespace zot {
namespace {

std::atomic<int> lockedFd{-1};
std::atomic<dev_t> lockedDevice{};
std::atomic<ino_t> lockedInode{};

bool LockWhole(int fd) noexcept {
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    return fcntl(fd, F_SETLK, &lock) == 0;
}

}  // namespace

bool HoldLock(int fd) {
    struct stat status {};
    if (fstat(fd, &status) != 0 || !LockWhole(fd)) return false;
    lockedDevice.store(status.st_dev);
    lockedInode.store(status.st_ino);
    lockedFd.store(fd);
    return true;
}

void ForgetLock() noexcept { lockedFd.store(-1); }

bool IsLockHeldOn(const struct stat& status) noexcept {
    return lockedFd.load() >= 0 && status.st_ino == lockedInode.load() &&
           status.st_dev == lockedDevice.load();
}

void RetakeLock() noexcept {
    int fd = lockedFd.load();
    if (fd >= 0) LockWhole(fd);
}

}  // namespace zot
