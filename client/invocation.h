// One run of zotq: how it was called, where it prints, and the exit statuses that scripts rely on.
// Every subcommand gets an Invocation and returns an ExitStatus.
#pragma once

#include <iosfwd>
#include <string>
#include <string_view>

#include "client/options.h"
#include "client/request_packet.h"

namespace zot::client {

// For everything but the plugin, which has statuses of its own.
enum ExitStatus : int {
    kReplyOk = 0,     // every agent answered 200
    kReplyOther = 1,  // some agent answered anything else
    kWrongUsage = 2,
    kNoReply = 3,  // some host gave no valid reply, or it could not be printed
};

struct Console {
    std::istream& in;
    std::ostream& out;
    std::ostream& err;
    bool progress = false;  // somebody watches `err`
    bool terminal = false;  // `out` is a terminal
};

// Values of environment variables; null if not set.
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

// Tells a person on standard error what went wrong, and returns the status.
int Fail(const Console& console, std::string_view message, ExitStatus status);
void Note(const Console& console, std::string_view message);
// Ends the run: if standard output did not take everything (a full disk, for example), the caller
// did not get it.
int Finish(const Console& console, int status);

// Prints a reply unchanged, and ends the run.
int FinishWithReply(const Invocation& call, const Answer& answer);
// The text in a form fit to print: without control characters on a terminal.
std::string Shown(const Console& console, std::string_view text);

}  // namespace zot::client
