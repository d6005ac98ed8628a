// Runs a program without a shell, with its standard streams redirected and a time-out.
#pragma once

#include <cstdint>
#include <string_view>

#include "base/vystring.h"
#include "checks/scripts/child_process.h"

namespace zot {

// Time-outs with a special meaning.
constexpr int64_t kNoTimeout = 0;
constexpr int64_t kDoNotWait = -1;  // start, watch for one second, leave it running

// Runs a command line (split as ArgumentList does) and waits for its end. `timeoutMs` counts in
// whole seconds: a program is killed, with its process group, at the first full second that exceeds
// it, or when the peer that the thread works for has gone (base/peer_watch.h). A negative time-out
// other than kDoNotWait kills at once.
// Returns true with the program's exit code, or false with `errorText`: "fork error"; "exec error:
// " and the system's text; "abnormal termination" (ended by a signal, or killed); "cannot terminate
// process". A program that was left running has exit code 0.
bool RunProcess(std::string_view commandLine, const ChildOptions& options, int64_t timeoutMs,
                int& exitCode, VyString& errorText);

// The same with all three streams on /dev/null.
bool RunProcessQuiet(std::string_view commandLine, std::string_view workDir,
                     std::string_view tmpDir, int64_t timeoutMs, int& exitCode,
                     VyString& errorText);

// Lets the shell run a command and waits for its end, however it ends; only a peer that has gone
// makes it kill the command. Unlike system() it does not touch the signals of the process. False
// when no child could be started.
bool RunShell(const char* command, std::string_view tmpDir);

}  // namespace zot
