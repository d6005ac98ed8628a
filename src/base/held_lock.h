// The one file that the process keeps locked all its life. The system drops such a lock as soon as
// the process closes any descriptor of that file, even one that a request read it through. So
// readers report that they have closed it, and the lock is taken again.
#pragma once

#include <sys/stat.h>

namespace zot {

// Locks the whole file for writing without waiting, and remembers it. False, with errno, when
// another process has it. REQUIRES that `fd` stays open until ForgetLock.
bool HoldLock(int fd);
// Call before the locked file is closed. Async-signal-safe.
void ForgetLock() noexcept;

// Whether this is the status of the locked file.
bool IsLockHeldOn(const struct stat& status) noexcept;
// Takes the lock again after a descriptor of the file was closed.
void RetakeLock() noexcept;

}  // namespace zot
