// The one file that the process keeps locked for its whole life. The system drops such a lock as
// soon as the process closes any descriptor of that file, also one that a request has read it
// through; so readers say when they have closed it, and the lock is taken again.
#pragma once

#include <sys/stat.h>

namespace zot {

// Locks the whole file for writing without waiting, and remembers it. False, with errno, when
// another process has it. REQUIRES that `fd` stays open until ForgetLock.
bool HoldLock(int fd);
// To be called before the locked file is closed. Async-signal-safe.
void ForgetLock() noexcept;

// Whether the status is that of the locked file.
bool IsLockHeldOn(const struct stat& status) noexcept;
// Takes the lock again after a descriptor of the file was closed.
void RetakeLock() noexcept;

}  // namespace zot
