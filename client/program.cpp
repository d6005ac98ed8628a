#include "client/program.h"

#include <ostream>
#include <string>
#include <string_view>

#include "client/options.h"
#include "client/subcommands.h"

namespace zot::client {
namespace {

constexpr std::string_view kVersion = "1.36";

// The row with the empty name takes every word that no other row has, and comes last.
struct Subcommand {
    std::string_view name;
    std::string_view synopsis;
    int (*run)(Invocation& call);
    std::string_view help;
};

constexpr Subcommand kSubcommands[] = {
    {"upgrade", "upgrade FILE", UpgradeAgent,
     "send FILE as the agent's new executable and wait until it answers"},
    {"settings", "settings", ShowSettings, "show the agent's settings, without the password"},
    {"set", "set NAME=VALUE ...", ChangeSettings,
     "change settings; names and values that the agent would not take are refused"},
    {"", "COMMAND [PARAM ...]", SendRequest,
     "send COMMAND with one line for each PARAM; - stands for the lines of standard input"},
};

const Subcommand& FindSubcommand(std::string_view word) {
    const Subcommand* row = kSubcommands;
    while (!row->name.empty() && row->name != word) ++row;
    return *row;
}

void PrintHelp(std::ostream& out) {
    out << "Asks a zot agent and prints its reply: the status code, then a line for each value.\n\n"
           "Usage:\n";
    for (const Subcommand& row : kSubcommands) {
        out << "  zotq [OPTION ...] " << row.synopsis << "\n      " << row.help << '\n';
    }
    out << "\nOptions:\n"
        << OptionsHelp()
        << "\nWithout -P the password comes from the environment variable ZOT_PASSWORD.\n\n"
           "Exit status: 0 when the agent replied 200, 1 after any other reply, 2 for wrong "
           "usage,\n"
           "3 when no valid reply came.\n";
}

int Run(std::span<const char* const> arguments, Invocation& call) {
    std::string error;
    Options& options = call.options;
    if (!ParseOptions(arguments, options, error)) {
        return Fail(call.console, error + " (see zotq --help)", kWrongUsage);
    }
    if (options.help) {
        PrintHelp(call.console.out);
        return Finish(call.console, kReplyOk);
    }
    if (options.version) {
        call.console.out << "zotq " << kVersion << '\n';
        return Finish(call.console, kReplyOk);
    }
    if (options.words.empty()) {
        return Fail(call.console, "no command (see zotq --help)", kWrongUsage);
    }
    return FindSubcommand(options.words[0]).run(call);
}

}  // namespace

int RunProgram(std::span<const char* const> arguments, const Environment& environment,
               const Console& console) {
    Invocation call = {{}, environment, console};
    return Run(arguments, call);
}

}  // namespace zot::client
