// The children of the process that nobody waits for.
#pragma once

#include <sys/types.h>

#include <string_view>

namespace zot {

// The variable by which one program of the agent hands over to the next. Children do not get it.
inline constexpr std::string_view kHandOverPrefix = "ZOT_HANDOVER=";

// Leaves a running child to ReapFinishedChildren.
void LeaveRunning(pid_t pid);

// Makes ReapFinishedChildren look for children that the agent did not start, where there can be
// any: those of the program before a restart, and orphans that the system gives to this process.
void ExpectForeignChildren();

// Reaps the children that were left running and have ended since, and foreign ones. The main loop
// calls it once a second.
void ReapFinishedChildren();

}  // namespace zot
