// One run of zotq: what it was called with, where it prints, and what scripts rely on when it ends.
// Every subcommand gets an Invocation and returns an ExitStatus.
#pragma once

#include <iosfwd>
#include <string>
#include <string_view>

#include "client/agent_client.h"
#include "client/options.h"
#include "client/request_packet.h"

namespace zot::client {

// Of everything but the plugin, which has statuses of its own.
enum ExitStatus : int {
    kReplyOk = 0,     // the agent answered 200
    kReplyOther = 1,  // the agent answered anything else
    kWrongUsage = 2,
    kNoReply = 3,  // no valid reply came, or it could not be printed
};

struct Console {
    std::istream& in;
    std::ostream& out;
    std::ostream& err;
    bool progress = false;  // somebody watches `err`
};

// Values of environment variables; null where one is not set.
struct Environment {
    const char* password = nullptr;   // ZOT_PASSWORD
    const char* stateHome = nullptr;  // XDG_STATE_HOME
    const char* home = nullptr;       // HOME
};

struct Invocation {
    Options options;
    const Environment& environment;
    const Console& console;
};

int Fail(const Console& console, std::string_view message, ExitStatus status);
// What standard output did not take (a full disk, say) did not reach the caller.
int Finish(const Console& console, int status);

// Puts the password into the target. Returns 1, or 0 with the error text.
int TakePassword(Invocation& call, std::string& error);
// The target with its password asked for a reply; returns 1, or 0 after telling what went wrong,
// with the status to end with.
int AskTarget(Invocation& call, std::string_view requestText, Answer& answer, int& status);
// Prints a reply as the options want it and ends the run.
int FinishWithReply(const Invocation& call, const Answer& answer);

}  // namespace zot::client
