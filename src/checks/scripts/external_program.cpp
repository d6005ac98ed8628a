#include "checks/scripts/external_program.h"

#include "base/vystring.h"
#include "checks/scripts/run_process.h"
#include "protocol/request_text.h"

namespace zot {

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

}  // namespace zot
