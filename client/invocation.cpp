#include "client/invocation.h"

#include <ostream>

#include "client/json.h"
#include "client/text.h"
#include "protocol/request_text.h"

namespace zot::client {

void Note(const Console& console, std::string_view message) {
    // At once: several runs may share the stream.
    console.err << "zotq: " + Visible(message, true) + "\n";
}

int Fail(const Console& console, std::string_view message, ExitStatus status) {
    Note(console, message);
    return status;
}

int Finish(const Console& console, int status) {
    if (console.out.flush()) return status;
    return Fail(console, "cannot write to standard output", kNoReply);
}

std::string Shown(const Console& console, std::string_view text) {
    return console.terminal ? Visible(text, true) : std::string(text);
}

int FinishWithReply(const Invocation& call, const Answer& answer) {
    Answer shown = answer;
    if (call.options.unescape) {
        for (std::string& line : shown.lines) line = std::string(Unescape(line).View());
    }
    std::ostream& out = call.console.out;
    if (call.options.json) {
        const std::string json = AnswerAsJson(shown);
        out << (call.console.terminal ? WithoutControls(json) : json) << '\n';
    } else {
        out << shown.code << '\n';
        for (const std::string& line : shown.lines) out << Shown(call.console, line) << '\n';
    }
    return Finish(call.console, answer.code == "200" ? kReplyOk : kReplyOther);
}

}  // namespace zot::client
