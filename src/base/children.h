// The children of the process that nobody waits for.
#pragma once

#include <sys/types.h>

#include <string_view>

namespace zot {

// The variable that one program of the agent leaves for the next. It is not for children.
inline constexpr std::string_view kHandOverPrefix = "ZOT_HANDOVER=";

// Leaves a running child to ReapFinishedChildren.
void LeaveRunning(pid_t pid);

// Reaps the children that were left running and have ended since. Called by the main loop once a
// second.
void ReapFinishedChildren();

}  // namespace zot
