// Where the systems differ. This folder is the one seam: each header has one implementation per
// system or processor beside it, NAME_SYSTEM.cpp, chosen by the build. The rest of the program
// never asks where it runs.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zot {

// Writes the system's message for the error number into `buffer`, NUL-terminated.
// False, with an empty text, when the system has no message for it.
bool SystemErrorText(int errorNumber, char* buffer, size_t size);

// Reports a broken internal rule as the C library's assert does and aborts the process.
[[noreturn]] void AssertionFailure(const char* function, const char* file, int line,
                                   const char* expression);

// Sizes in bytes of the file system that holds `path`. False, with errno, on failure.
// `available` (what the agent may use) can be negative where a reserve is in use.
bool FileSystemSpace(const char* path, int64_t& total, int64_t& free, int64_t& available);

// Makes the C library return the memory of large requests to the system once they are answered.
// Call before the first thread starts.
void LimitFreedMemory();

// Whether accept failed because of a peer or its network: the next connection may well be fine.
bool IsErrorOfPeer(int acceptError);

// The flag of send that says that more follows at once, if only the end, so that one segment can
// carry both; 0 where there is none.
int MoreFollowsFlag();

// Whether the open file's content is made up while it is read, as under /proc: such a file may have
// no end, whatever its size says.
bool IsMadeUpFile(int fd);

// Says that these bytes, just mapped from a file, will be looked at from front to back. False when
// reading them is better: FreeBSD fetches what is not in memory a block at a time, and ZFS keeps
// what is mapped a second time.
bool ExpectMapped(void* begin, size_t size) noexcept;

// The nice value of the calling thread, and setting it: only a permitted process may set a smaller
// one than it has (false, with errno). On FreeBSD a thread has none of its own, and needs none,
// since the scheduler favours threads that mostly sleep.
int ThreadNice();
bool SetThreadNice(int nice);

// The process environment as execve takes it.
char** ProcessEnvironment();

}  // namespace zot
