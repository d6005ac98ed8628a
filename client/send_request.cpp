#include <istream>
#include <memory>
#include <string>
#include <vector>

#include "client/agent_client.h"
#include "client/people.h"
#include "client/subcommands.h"

namespace zot::client {
namespace {

// The parameters; "-" means the lines of standard input.
bool CollectParams(const Invocation& call, std::vector<std::string>& params) {
    const auto& words = call.options.words;
    for (size_t i = 1; i < words.size(); ++i) {
        if (words[i] != "-") {
            params.push_back(words[i]);
            continue;
        }
        for (std::string line; std::getline(call.console.in, line);) params.push_back(line);
        if (call.console.in.bad()) return false;
    }
    return true;
}

// Scripts read one host's unchanged reply.
bool IsPlain(const Options& options, const Choice& choice) {
    return !choice.many && options.fields.empty() && !options.fold && !options.diff &&
           options.failedFile.empty() &&
           (options.output == Output::kDefault || options.output == Output::kRaw);
}

int SendPlain(Invocation& call, const ChosenHost& host, const std::string& command,
              const std::vector<std::string>& params) {
    Answer answer;
    std::string error;
    if (!Ask(host.target, ComposeRequest(command, params), answer, error)) {
        return Fail(call.console, error, kNoReply);
    }
    bool unknown = answer.code == "500" && !answer.lines.empty() &&
                   answer.lines[0].starts_with("Unknown command");
    std::string nearest = unknown ? NearestCommand(command) : "";
    if (!nearest.empty()) Note(call.console, "did you mean " + nearest + "?");
    return FinishWithReply(call, answer);
}

}  // namespace

int SendRequest(Invocation& call) {
    const std::string& command = call.options.words[0];
    std::vector<std::string> params;
    if (!CollectParams(call, params)) {
        return Fail(call.console, "cannot read standard input", kWrongUsage);
    }
    Choice choice;
    int status = 0;
    if (!Prepare(call, FieldNames(command), choice, status)) return status;
    if (IsPlain(call.options, choice)) return SendPlain(call, choice.hosts[0], command, params);
    return AskQuestions(call, {{command, params}});
}

}  // namespace zot::client
