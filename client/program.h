// The program zotq without its main(): everything between the command line and the exit status.
#pragma once

#include <iosfwd>
#include <span>

namespace zot::client {

// What scripts rely on.
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
};

// Takes the arguments behind the program's name and the value of ZOT_PASSWORD (may be null);
// returns an ExitStatus.
int RunProgram(std::span<const char* const> arguments, const char* environmentPassword,
               const Console& console);

}  // namespace zot::client
