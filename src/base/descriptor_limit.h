// The limit of open descriptors: as high as the system allows for the agent, and as it was for the
// programs that the agent executes.
#pragma once

namespace zot {

// Raises the limit to what the system allows. Returns the limit in force, 0 if it is unknown.
// Async-signal-safe.
int RaiseDescriptorLimit() noexcept;

// Sets the limit back to what this process was started with; does nothing before the first raise.
// For a process about to execute a program: one that sizes a table by the limit, or closes
// everything up to it, must not find a million. Async-signal-safe, also in a child of vfork.
void RestoreDescriptorLimit() noexcept;

}  // namespace zot
