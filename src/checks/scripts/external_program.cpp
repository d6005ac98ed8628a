#include "checks/scripts/run_process.h"
#include "checks/scripts/script_checks.h"
#include "protocol/request_text.h"

namespace zot {
namespace {

// A trimmed line that stays empty when it is: where an empty command is an error of its own, the
// next line must not slip into its place.
std::string_view OwnLine(std::string_view params, int32_t n) {
    return TrimView(RawLine(params, n));
}

void RunAndReply(std::string_view command, std::string_view workDir, int32_t timeoutMs,
                 const AgentSettings& settings, Reply& reply) {
    int exitCode = 0;
    VyString errorText;
    if (!RunProcessQuiet(command, workDir, settings.tmpDir, timeoutMs, exitCode, errorText)) {
        reply.Start("301", errorText);
        return;
    }
    reply.Start("200");
    reply.AppendInt(exitCode);
}

}  // namespace

void TestExternalPrg(std::string_view params, const AgentSettings& settings, Reply& reply) {
    if (!settings.testExternal) return reply.Start("600", "test is not allowed");
    int32_t timeoutMs = 0;
    if (!ParseInt(GetLine(params, 4), timeoutMs)) return reply.Start("501", "Wrong parameter");
    std::string_view command = OwnLine(params, 1);
    // Servers know this refusal by its bare code, unlike the one of the action.
    if (command.empty()) return reply.Start("501");
    RunAndReply(command, {}, timeoutMs, settings, reply);
}

void ActExternalCmd(std::string_view params, const AgentSettings& settings, Reply& reply) {
    if (!settings.actExecute) return reply.Start("600", "operation is not allowed");
    int32_t unused = 0;  // must be a number although nothing depends on it
    int32_t timeoutMs = 0;
    if (!ParseInt(OwnLine(params, 3), unused) || !ParseInt(OwnLine(params, 4), timeoutMs)) {
        return reply.Start("501", "Wrong parameter");
    }
    std::string_view command = OwnLine(params, 1);
    if (command.empty()) return reply.Start("501", "Command line to execute is not specified");
    RunAndReply(command, OwnLine(params, 2), timeoutMs, settings, reply);
}

}  // namespace zot
