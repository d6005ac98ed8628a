// The checks that run before the agent takes any request.
#pragma once

namespace zot {

// Prepares the cipher and runs its own tests, then the block and packet round trips, printing one
// line each. A failure ends the process with exit code 3.
void RunCipherChecks();

// Prints the widths of the fields that hold file sizes, for debugging mode.
void PrintSizes();

}  // namespace zot
