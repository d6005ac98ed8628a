// The signals the agent lives with: hang-up reloads, a segmentation fault restarts, a broken pipe
// is nothing.
#pragma once

#include <signal.h>

#include <cstdint>

#include "agent/agent_control.h"
#include "agent/daemon.h"

namespace zot {

// What this process was started with; a new image of it gets the very same.
struct StartArguments {
    char** argv;
    char** envp;
    int32_t port;  // of the command line, 0 without one
};

// Sets what the agent relies on, whatever its starter left: no signal is held back, and a child
// that ends keeps its status until it is asked for.
void SetUsualSignals();

// A write to a peer that has gone, or beyond the limit of a file's size, fails and no more.
void IgnoreWriteSignals();

// SIGTERM, and SIGINT unless the starter has it ignored, ask the agent to end as QUIT does.
// `control` must live as long as the process.
void InstallTerminateHandler(AgentControl& control);

// From here on a hang-up is held back in the calling thread and in all that it starts, and noted
// only where a wait lets it in (ppoll with an empty mask): it interrupts nothing else.
void InstallHangupHandler();
// Whether a hang-up came in since the last call.
bool TakeHangup();

// An agent that crashes right after its start would crash again: true only from an uptime of 181
// seconds on. Both times are in seconds.
bool RestartsAfterCrash(int64_t startTime, int64_t now);

// Makes a segmentation fault in any thread replace the process by a new image of the agent, or
// end it when RestartsAfterCrash says no. All arguments must live as long as the process.
void InstallCrashHandler(AgentServices& services, PidFile& pidFile, StartArguments arguments);

// Replaces the process by the file at `path`, with no signal held back. A file that is still being
// written is waited for, up to three seconds. Returns only when it fails. Async-signal-safe.
void ExecuteImage(const char* path, char** argv, char** envp) noexcept;

// A stack for the crash handler of one thread, since the fault may be that its own has run out.
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
