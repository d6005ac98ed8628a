#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "base/owners.h"
#include "base/platform.h"
#include "client/check.h"
#include "client/local_file.h"
#include "client/text.h"
#include "protocol/request_text.h"

namespace zot::client {
namespace {

constexpr size_t kMaxScriptSize = size_t{1} << 20;
constexpr const char* kOutputLines = "20";
constexpr std::string_view kResultMark = "scriptres:";

// What the agent may spend on the script, in seconds: it counts whole ones, and its reply must come
// in time.
std::string TimeLimit(const CheckRun& run) {
    constexpr int kReplySeconds = 2;
    return std::to_string(std::max(1, run.TimeLimit().Remaining() / 1000 - kReplySeconds));
}

std::vector<std::string> RequestParams(const CheckRun& run, const std::string& script) {
    std::string arguments;
    for (const std::string& argument : run.Arguments().subspan(1)) {
        arguments += (arguments.empty() ? "" : " ") + argument;
    }
    // The quotes: a template of nothing but the marker is not filled in. Where there are no
    // arguments their line must not be empty, but then nothing refers to it.
    return {arguments.empty() ? "\"%script%\"" : "\"%script%\" %params%", script,
            arguments.empty() ? "0" : arguments, TimeLimit(run), kOutputLines};
}

}  // namespace

void CheckScript(const CheckRun& run, CheckResult& result) {
    const std::string& file = run.Arguments()[0];
    std::string script, error;
    if (!ReadWholeFile(file, kMaxScriptSize, script, error)) return result.Fail(kUnknown, error);
    if (TrimView(script).empty()) return result.Fail(kUnknown, file + " is empty");

    Answer answer;
    if (!run.Ask("TEST-ShellScript", RequestParams(run, script), 2, answer, result)) return;
    VyString line = Unescape(answer.lines[0]);
    std::string_view text = TrimView(line.View());
    if (text.starts_with(kResultMark)) text = TrimView(text.substr(kResultMark.size()));
    result.text = text.empty() ? "the script printed nothing" : text;
    result.longText = std::string(Unescape(answer.lines[1]).View());

    const Options& options = run.GivenOptions();
    double value = 0;
    if (FindDecimal(text, value)) {
        result.value = value;
        result.label = "result";
    } else if (options.warning || options.critical) {
        result.status = kUnknown;
        result.text += " (no number for the ranges)";
    } else {
        result.status = kOk;
    }
}

}  // namespace zot::client
