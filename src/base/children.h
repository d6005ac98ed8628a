// The children of the process that nobody waits for.
#pragma once

#include <sys/types.h>

namespace zot {

// Leaves a running child to ReapFinishedChildren.
void LeaveRunning(pid_t pid);

// Reaps the children that were left running and have ended since. Called by the main loop once a
// second.
void ReapFinishedChildren();

}  // namespace zot
