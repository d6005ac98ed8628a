// One run of zotq: what it was called with, where it prints, and what scripts rely on when it ends.
// Every subcommand gets an Invocation and returns an ExitStatus.
#pragma once

#include <iosfwd>
#include <string>
#include <string_view>

#include "client/options.h"
#include "client/request_packet.h"

namespace zot::client {

// Of everything but the plugin, which has statuses of its own.
enum ExitStatus : int {
    kReplyOk = 0,     // every agent answered 200
    kReplyOther = 1,  // some agent answered anything else
    kWrongUsage = 2,
    kNoReply = 3,  // from some host no valid reply came, or it could not be printed
};

struct Console {
    std::istream& in;
    std::ostream& out;
    std::ostream& err;
    bool progress = false;  // somebody watches `err`
    bool terminal = false;  // `out` is a terminal
};

// Values of environment variables; null where one is not set.
struct Environment {
    const char* password = nullptr;   // ZOT_PASSWORD
    const char* stateHome = nullptr;  // XDG_STATE_HOME
    const char* home = nullptr;       // HOME
    const char* hosts = nullptr;      // ZOT_HOSTS
    const char* noColor = nullptr;    // NO_COLOR
    std::string commandLine{};        // of this process, as others see it
};

struct Invocation {
    Options options;
    const Environment& environment;
    const Console& console;
};

// Tells a person what went wrong, or what to mind, on standard error.
int Fail(const Console& console, std::string_view message, ExitStatus status);
void Note(const Console& console, std::string_view message);
// What standard output did not take (a full disk, say) did not reach the caller.
int Finish(const Console& console, int status);

// The password of a single host that no inventory names: from the file, or the environment. False
// with the error text.
bool TakePassword(Invocation& call, std::string& error);
// Prints a reply as it came, and ends the run.
int FinishWithReply(const Invocation& call, const Answer& answer);
// The text as it may be printed: on a terminal without control characters.
std::string Shown(const Console& console, std::string_view text);

}  // namespace zot::client
