#include "client/invocation.h"

#include <ostream>

#include "client/inventory.h"
#include "client/json.h"
#include "client/text.h"
#include "protocol/request_text.h"

namespace zot::client {

void Note(const Console& console, std::string_view message) {
    console.err << "zotq: " << Visible(message, true) << '\n';
}

int Fail(const Console& console, std::string_view message, ExitStatus status) {
    Note(console, message);
    return status;
}

int Finish(const Console& console, int status) {
    if (console.out.flush()) return status;
    return Fail(console, "cannot write to standard output", kNoReply);
}

bool TakePassword(Invocation& call, std::string& error) {
    const Options& options = call.options;
    std::string& password = call.options.target.password;
    if (options.passwordFile.empty()) {
        password = call.environment.password ? call.environment.password : "";
        if (!password.empty()) return true;
        error = "no password: name a file with -P or set ZOT_PASSWORD";
        return false;
    }
    // A folder has a file for each host.
    auto host =
        Inventory::FromNames(options.target.host, {.passwordFile = options.passwordFile}, error);
    if (!host || host->Hosts().size() != 1) {
        if (host) error = "not a name of a host: " + options.target.host;
        return false;
    }
    bool forOthers = false;
    const std::string& file = host->Hosts()[0].passwordFile;
    if (!ReadPasswordFile(file, password, forOthers, error)) return false;
    if (forOthers && !options.plugin) Note(call.console, "others can read " + file);
    return true;
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
        out << AnswerAsJson(shown) << '\n';
    } else {
        out << shown.code << '\n';
        for (const std::string& line : shown.lines) out << Shown(call.console, line) << '\n';
    }
    return Finish(call.console, answer.code == "200" ? kReplyOk : kReplyOther);
}

}  // namespace zot::client
