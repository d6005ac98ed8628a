// The children of the process that nobody waits for.
#pragma once

#include <sys/types.h>

#include <string_view>

namespace zot {

// The variable that one program of the agent leaves for the next. It is not for children.
inline constexpr std::string_view kHandOverPrefix = "ZOT_HANDOVER=";

// Leaves a running child to ReapFinishedChildren.
void LeaveRunning(pid_t pid);

// Has ReapFinishedChildren look for children that the agent did not start, if there can be any:
// those of the image before a restart, and orphans that the system gives to this process.
void ExpectForeignChildren();

// Reaps the children that were left running and have ended since, and foreign ones. Called by the
// main loop once a second.
void ReapFinishedChildren();

}  // namespace zot
