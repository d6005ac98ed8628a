#include <optional>
#include <string>
#include <vector>

#include "client/check.h"
#include "client/script_request.h"
#include "client/text.h"

namespace zot::client {

void CheckScript(const CheckRun& run, CheckResult& result) {
    std::vector<std::string> params;
    std::string error;
    if (!ScriptParams(run.Arguments()[0], run.Arguments().subspan(1),
                      ScriptSeconds(run.TimeLimit().Remaining()), params, error)) {
        return result.Fail(kUnknown, error);
    }
    Answer answer;
    ScriptResult script;
    if (!run.Ask("TEST-ShellScript", params, 2, answer, result)) return;
    ReadScriptResult(answer, script);
    result.text = script.line.empty() ? "the script printed nothing" : script.line;
    result.longText = script.output;

    const Options& options = run.GivenOptions();
    double value = 0;
    if (FindDecimal(script.line, value)) {
        result.value = value;
        result.label = "result";
    } else if (options.warning || options.critical) {
        result.status = kUnknown;
        result.text += " (no number for the ranges)";
    } else {
        result.status = kOk;
    }
    if (script.exitCode.value_or(0) == 0) return;
    result.status = kCritical;
    result.text += " (the script failed with " + std::to_string(*script.exitCode) + ")";
}

}  // namespace zot::client
