// The part of the system seam that child processes need: noticing the end of a child at once, and
// leaving behind what a child must not inherit.
#pragma once

#include <sys/types.h>

namespace zot {

// Waits until the child process `pid` has ended, at most `timeoutMs` milliseconds. Does not reap
// it. REQUIRES that `pid` is a child of this process that nobody has reaped yet.
// Returns true when it has ended.
bool WaitChild(pid_t pid, int timeoutMs);

// Whether the system makes the orphans among this process's descendants its children: it is the
// first process, of a container for example, or has asked for them.
bool AdoptsOrphans();

// Closes every descriptor from `first` on; does nothing, and returns false, where the system cannot
// do that in one call. Async-signal-safe.
bool CloseDescriptorsFrom(int first) noexcept;

// Shows `title` in lists of processes in place of the command line. Takes the memory of the
// arguments, and of the environment where they are too short for it. Async-signal-safe.
void SetProcessTitle(char** argv, char** envp, const char* title) noexcept;

// Kills every process that was started with `entry` ("NAME=VALUE") in its environment, except this
// one. Returns how many it found, -1 when the processes cannot be told. Async-signal-safe.
int KillProcessesWith(const char* entry) noexcept;

// Gives the classic signals (numbers 1 to 31) their default actions and unblocks all signals. For a
// child that may still share its memory with its parent: touches nothing of the process but the
// kernel's view of it. Async-signal-safe.
void ResetSignals() noexcept;

}  // namespace zot
