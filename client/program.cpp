#include "client/program.h"

#include <istream>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "client/agent_client.h"
#include "client/options.h"
#include "protocol/request_text.h"

namespace zot::client {
namespace {

constexpr std::string_view kVersion = "1.36";

struct Invocation {
    Options options;
    const char* environmentPassword;
    const Console& console;
};

int Fail(const Console& console, std::string_view message, ExitStatus status) {
    console.err << "zotq: " << message << '\n';
    return status;
}

// The parameters, where "-" stands for the lines of standard input.
int CollectParams(const Invocation& call, std::vector<std::string>& params) {
    const auto& words = call.options.words;
    for (size_t i = 1; i < words.size(); ++i) {
        if (words[i] != "-") {
            params.push_back(words[i]);
            continue;
        }
        for (std::string line; std::getline(call.console.in, line);) params.push_back(line);
        if (call.console.in.bad()) return 0;
    }
    return 1;
}

void PrintAnswer(const Answer& answer, bool unescape, std::ostream& out) {
    out << answer.code << '\n';
    for (const std::string& line : answer.lines) {
        if (unescape) {
            out << Unescape(line).View() << '\n';
        } else {
            out << line << '\n';
        }
    }
}

// What standard output did not take (a full disk, say) did not reach the caller.
int Finish(const Console& console, ExitStatus status) {
    if (console.out.flush()) return status;
    return Fail(console, "cannot write to standard output", kNoReply);
}

int AskAgent(Invocation& call) {
    Target& target = call.options.target;
    std::string error;
    std::vector<std::string> params;
    if (!ReadPassword(call.options, call.environmentPassword, target.password, error)) {
        return Fail(call.console, error, kWrongUsage);
    }
    if (!CollectParams(call, params)) {
        return Fail(call.console, "cannot read standard input", kWrongUsage);
    }
    Answer answer;
    if (!Ask(target, ComposeRequest(call.options.words[0], params), answer, error)) {
        return Fail(call.console, error, kNoReply);
    }
    PrintAnswer(answer, call.options.unescape, call.console.out);
    return Finish(call.console, answer.code == "200" ? kReplyOk : kReplyOther);
}

// The row with the empty name takes every word that no other row has, and comes last.
struct Subcommand {
    std::string_view name;
    std::string_view synopsis;
    int (*run)(Invocation& call);
    std::string_view help;
};

constexpr Subcommand kSubcommands[] = {
    {"", "COMMAND [PARAM ...]", AskAgent,
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

}  // namespace

int RunProgram(std::span<const char* const> arguments, const char* environmentPassword,
               const Console& console) {
    Invocation call = {{}, environmentPassword, console};
    std::string error;
    if (!ParseOptions(arguments, call.options, error)) {
        return Fail(console, error + " (see zotq --help)", kWrongUsage);
    }
    if (call.options.help) {
        PrintHelp(console.out);
        return Finish(console, kReplyOk);
    }
    if (call.options.version) {
        console.out << "zotq " << kVersion << '\n';
        return Finish(console, kReplyOk);
    }
    if (call.options.words.empty()) {
        return Fail(console, "no command (see zotq --help)", kWrongUsage);
    }
    return FindSubcommand(call.options.words[0]).run(call);
}

}  // namespace zot::client
