#include "client/program.h"

#include <algorithm>
#include <ostream>
#include <string>
#include <string_view>

#include "client/options.h"
#include "client/plugin.h"
#include "client/subcommands.h"
#include "client/text.h"
#include "commands/agent_info.h"

namespace zot::client {
namespace {

std::string SubcommandsHelp() {
    std::vector<std::pair<std::string, std::string_view>> rows;
    for (const Subcommand& row : kSubcommands) {
        std::string left(row.name);
        if (!row.arguments.empty()) left.append(" ").append(row.arguments);
        rows.emplace_back(left, row.help);
    }
    return HelpTable(rows);
}

void PrintHelp(std::ostream& out) {
    out << "Asks zot agents: one, or all of a list at once.\n\n"
           "Usage:\n"
           "  zotq [OPTION ...] SUBCOMMAND [WORD ...]\n"
           "  zotq [OPTION ...] COMMAND [PARAM ...]\n"
           "      send a command of zot-commands(7) with one line for each PARAM and print the\n"
           "      reply; - stands for the lines of standard input\n"
           "  zotq --plugin [OPTION ...] CHECK [ARGUMENT ...]\n"
           "      be a monitoring plugin, with one of the checks below\n"
           "\nSubcommands:\n"
        << SubcommandsHelp() << "\nOptions:\n"
        << OptionsHelp(Scope::kAll) << "\nOptions of set:\n"
        << OptionsHelp(Scope::kSet) << "\nOptions of upgrade:\n"
        << OptionsHelp(Scope::kUpgrade) << "\nChecks of --plugin, and what the ranges apply to:\n"
        << ChecksHelp()
        << "\nA RANGE is 10 (0 to 10 is good), 10: (10 or more), ~:10 (10 or less), 10:20, or\n"
           "@10:20 (anything else is good).\n\n"
           "Without -P the password comes from the environment variable ZOT_PASSWORD.\n\n"
           "Exit status: 0 when every agent replied 200, 1 when some gave another reply, 2 for\n"
           "wrong usage, 3 when from some host no valid reply came. With --plugin: 0 OK,\n"
           "1 WARNING, 2 CRITICAL, 3 UNKNOWN.\n";
}

int TellHowToBegin(const Console& console) {
    return Fail(console,
                "nothing to ask. To begin:\n"
                "  zotq -H web1 -P FILE status       does the agent on web1 answer?\n"
                "  zotq -H web1 -P FILE disk / /var  how full are its disks?\n"
                "  zotq --hosts all status           every host of /etc/zot/hosts at once\n"
                "FILE holds the agent's password on its first line. All there is: zotq --help",
                kWrongUsage);
}

int RunSubcommand(const Subcommand& row, Invocation& call) {
    Options& options = call.options;
    std::string error;
    if (!ParseSubcommand(row.scope, row.wordsOnly, options, error)) {
        return Fail(call.console, error + " (see zotq --help)", kWrongUsage);
    }
    if (options.help) {
        PrintHelp(call.console.out);
        return Finish(call.console, kReplyOk);
    }
    size_t count = options.words.size() - 1;
    bool empty = std::find(options.words.begin(), options.words.end(), "") != options.words.end();
    if (count < row.minWords || count > row.maxWords || empty) {
        return Fail(call.console,
                    Concat({"usage: zotq [OPTION ...] ", row.name, row.arguments.empty() ? "" : " ",
                            row.arguments}),
                    kWrongUsage);
    }
    bool onlyOneReply = row.run == AskInfo || row.run == ShowSettings ||
                        row.run == ChangeSettings || row.run == UpgradeAgent;
    if (options.json && !onlyOneReply) {
        return Fail(call.console, "--json is the form of one reply; use -o json", kWrongUsage);
    }
    return row.run(call);
}

// No agent has a command in small letters, so this one is a typing error.
bool IsMistyped(const std::string& word) {
    return std::all_of(word.begin(), word.end(), [](char c) { return c >= 'a' && c <= 'z'; }) &&
           !NearestCommand(word).empty();
}

int Run(std::span<const char* const> arguments, Invocation& call) {
    std::string error;
    Options& options = call.options;
    if (!ParseOptions(arguments, options, error)) {
        // Wherever the fault is, a monitoring system that runs a plugin reads its standard output.
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
    if (options.words.empty()) return TellHowToBegin(call.console);
    if (const Subcommand* row = FindSubcommand(options.words[0])) return RunSubcommand(*row, call);
    if (IsMistyped(options.words[0])) {
        return Fail(call.console,
                    "no command with the name " + options.words[0] + "; did you mean " +
                        NearestCommand(options.words[0]) + "?",
                    kWrongUsage);
    }
    return SendRequest(call);
}

}  // namespace

int RunProgram(std::span<const char* const> arguments, const Environment& environment,
               const Console& console) {
    Invocation call = {{}, environment, console};
    return Run(arguments, call);
}

}  // namespace zot::client
