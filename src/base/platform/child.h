// What the systems do differently with child processes: noticing at once when one ends, and keeping
// from it what it must not inherit.
#pragma once

#include <sys/types.h>

namespace zot {

// Waits until the child process `pid` has ended, at most `timeoutMs` milliseconds. Does not reap
// it. REQUIRES that `pid` is a child of this process that nobody has reaped yet.
// Returns true when it has ended.
bool WaitChild(pid_t pid, int timeoutMs);

// Whether the system makes orphaned descendants children of this process: it is the first process,
// of a container for example, or has asked for them.
bool AdoptsOrphans();

// Closes every descriptor from `first` on; does nothing, and returns false, where the system cannot
// do that in one call. Async-signal-safe.
bool CloseDescriptorsFrom(int first) noexcept;

// Shows `title` instead of the command line in lists of processes. Uses the memory of the
// arguments, and that of the environment where they are too short. Async-signal-safe.
void SetProcessTitle(char** argv, char** envp, const char* title) noexcept;

// Sends the signal, 0 for none, to every process that was started with `entry` ("NAME=VALUE") in
// its environment, except this one. Returns how many it found, -1 when the processes cannot be
// listed. Async-signal-safe.
int SignalProcessesWith(const char* entry, int number) noexcept;

// Gives the classic signals (numbers 1 to 31) their default actions and unblocks all signals. For a
// child that may still share its parent's memory: changes only the kernel's view of the process.
// Async-signal-safe.
void ResetSignals() noexcept;

}  // namespace zot
