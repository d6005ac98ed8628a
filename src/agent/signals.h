// The signals the agent lives with: hang-up reloads, a segmentation fault restarts, a broken pipe
// is nothing.
#pragma once

#include <signal.h>

#include <cstdint>

#include "agent/agent_control.h"
#include "agent/daemon.h"

namespace zot {

// What this process was started with; a new image of it gets exactly the same.
struct StartArguments {
    char** argv;
    char** envp;
    int32_t port;  // from the command line, 0 without one
};

// Sets what the agent relies on, whatever its starter left: no signal is blocked, and a child that
// ends keeps its status until the agent asks for it.
void SetUsualSignals();

// Writing to a peer that has gone, or beyond the limit of a file's size, fails and does no more.
void IgnoreWriteSignals();

// SIGTERM, and SIGINT unless the starter ignored it, ask the agent to end as QUIT does. `control`
// must live as long as the process.
void InstallTerminateHandler(AgentControl& control);

// From here on a hang-up is blocked in the calling thread and in every thread that it starts, and
// noted only where a wait lets it in (ppoll with an empty mask). So it interrupts nothing else.
void InstallHangupHandler();
// Whether a hang-up has arrived since the last call.
bool TakeHangup();

// An agent that crashes right after its start would crash again: true only from an uptime of 181
// seconds. Both times are in seconds.
bool RestartsAfterCrash(int64_t startTime, int64_t now);

// Makes a segmentation fault in any thread replace the process by a new image of the agent, or
// end it when RestartsAfterCrash says no. All arguments must live as long as the process.
void InstallCrashHandler(AgentServices& services, PidFile& pidFile, StartArguments arguments);

// Replaces the process by the file at `path`, with no signal blocked. Waits up to three seconds for
// a file that is still being written. Returns only on failure. Async-signal-safe.
void ExecuteImage(const char* path, char** argv, char** envp) noexcept;

// A stack for the crash handler of one thread: the fault may be that its own stack has run out.
class AlternateStack {
  public:
    AlternateStack();
    ~AlternateStack();
    AlternateStack(const AlternateStack&) = delete;
    AlternateStack& operator=(const AlternateStack&) = delete;

  private:
    stack_t previous_{};
    char memory_[32 * 1024];
};

}  // namespace zot
