#include <cstddef>
#include <istream>
#include <string>
#include <vector>

#include "client/invocation.h"
#include "client/options.h"
#include "client/request_packet.h"
#include "client/subcommands.h"

namespace zot::client {
namespace {

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

}  // namespace

int SendRequest(Invocation& call) {
    std::vector<std::string> params;
    if (!CollectParams(call, params)) {
        return Fail(call.console, "cannot read standard input", kWrongUsage);
    }
    Answer answer;
    int status = 0;
    if (!AskTarget(call, ComposeRequest(call.options.words[0], params), answer, status)) {
        return status;
    }
    return FinishWithReply(call, answer);
}

}  // namespace zot::client
