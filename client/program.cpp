#include "client/program.h"

#include <algorithm>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "client/options.h"
#include "client/plugin.h"
#include "client/range.h"
#include "client/subcommands.h"
#include "commands/agent_info.h"

namespace zot::client {
namespace {

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
    out << "  zotq --plugin [OPTION ...] CHECK [ARGUMENT ...]\n"
           "      be a monitoring plugin, with one of the checks below\n"
           "\nOptions:\n"
        << OptionsHelp() << "\nChecks, and what the ranges apply to:\n"
        << ChecksHelp()
        << "\nA RANGE is 10 (0 to 10 is good), 10: (10 or more), ~:10 (10 or less), 10:20, or\n"
           "@10:20 (anything else is good).\n\n"
           "Without -P the password comes from the environment variable ZOT_PASSWORD.\n\n"
           "Exit status: 0 when the agent replied 200, 1 after any other reply, 2 for wrong "
           "usage,\n"
           "3 when no valid reply came. With --plugin: 0 OK, 1 WARNING, 2 CRITICAL, 3 UNKNOWN.\n";
}

int Run(std::span<const char* const> arguments, Invocation& call) {
    std::string error;
    Options& options = call.options;
    if (!ParseOptions(arguments, options, error)) {
        // Wherever the fault is: a monitoring system that runs a plugin reads its standard output.
        bool plugin = std::find(arguments.begin(), arguments.end(), std::string_view("--plugin")) !=
                      arguments.end();
        if (plugin) return PluginUsageError(call.console, error);
        return Fail(call.console, error + " (see zotq --help)", kWrongUsage);
    }
    // A plugin that was not asked to check anything knows nothing.
    const int toldOnly = options.plugin ? int{kUnknown} : int{kReplyOk};
    if (options.help) {
        PrintHelp(call.console.out);
        return Finish(call.console, toldOnly);
    }
    if (options.version) {
        call.console.out << "zotq " << kAgentVersion << '\n';
        return Finish(call.console, toldOnly);
    }
    if (options.plugin) return RunPlugin(call);
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
