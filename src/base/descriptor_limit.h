// The limit of open descriptors: for the agent as high as the system allows, for what it executes
// as it was.
#pragma once

namespace zot {

// Raises the limit to what the system allows. Returns the limit in force, 0 if it cannot be told.
// Async-signal-safe.
int RaiseDescriptorLimit() noexcept;

// Sets the limit back to what this process was started with; nothing before the first raise. For a
// process that is about to execute a program: what sizes a table or closes everything by the limit
// must not find a million. Async-signal-safe, also in a child of vfork.
void RestoreDescriptorLimit() noexcept;

}  // namespace zot
