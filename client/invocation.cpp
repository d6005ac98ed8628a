#include "client/invocation.h"

#include <ostream>
#include <vector>

#include "base/escaping.h"
#include "base/vystring.h"
#include "client/agent_client.h"
#include "client/json.h"
#include "protocol/request_text.h"

namespace zot::client {

int Fail(const Console& console, std::string_view message, ExitStatus status) {
    console.err << "zotq: " << message << '\n';
    return status;
}

int Finish(const Console& console, int status) {
    if (console.out.flush()) return status;
    return Fail(console, "cannot write to standard output", kNoReply);
}

int TakePassword(Invocation& call, std::string& error) {
    return ReadPassword(call.options, call.environment.password, call.options.target.password,
                        error);
}

int AskTarget(Invocation& call, std::string_view requestText, Answer& answer, int& status) {
    std::string error;
    if (!TakePassword(call, error)) {
        status = Fail(call.console, error, kWrongUsage);
        return 0;
    }
    if (!Ask(call.options.target, requestText, answer, error)) {
        status = Fail(call.console, error, kNoReply);
        return 0;
    }
    return 1;
}

int FinishWithReply(const Invocation& call, const Answer& answer) {
    Answer shown = answer;
    if (call.options.unescape) {
        for (std::string& line : shown.lines) line = std::string(Unescape(line).View());
    }
    std::ostream& out = call.console.out;
    if (call.options.json) {
        out << AnswerAsJson(shown) << '\n';
    } else {
        out << shown.code << '\n';
        for (const std::string& line : shown.lines) out << line << '\n';
    }
    return Finish(call.console, answer.code == "200" ? kReplyOk : kReplyOther);
}

}  // namespace zot::client
