#include <cstdint>
#include <string_view>

#include "base/vystring.h"
#include "checks/scripts/child_process.h"
#include "checks/scripts/configured_script.h"
#include "checks/scripts/run_process.h"
#include "checks/scripts/script_checks.h"
#include "checks/scripts/script_output.h"
#include "checks/scripts/temp_name.h"
#include "config/settings.h"
#include "protocol/reply.h"

namespace zot {

void TestCpu(std::string_view /*params*/, const AgentSettings& settings, Reply& reply) {
    constexpr int64_t kTimeoutMs = 8000;
    if (!ScriptIsUsable(settings.cpuUsageScript, "CPUUsage", reply)) return;
    TempFile file;
    TempFile::Result created = file.Create(settings.tmpDir, "tmpCzot-");
    if (created == TempFile::Result::kNoName) return reply.Start("301", "cannot get temp file");
    file.Close();
    if (created == TempFile::Result::kNotCreated) {
        return reply.Start("301", "Cannot get script results");
    }
    PauseBeforeScript(settings);
    ChildOptions options = {settings.tmpDir, {}, file.Path(), file.Path(), file.Path()};
    int exitCode = 0;
    VyString errorText;
    if (!RunProcess(settings.cpuUsageScript, options, kTimeoutMs, exitCode, errorText)) {
        return reply.Start("301", "Cannot execute script");
    }
    ScriptOutput output;
    if (!output.Open(file.Path())) return reply.Start("301", "Cannot get script results");
    float usage = 0;
    if (!output.ReadFloat(usage)) return reply.Start("301", "Script error");
    reply.Start("200");
    reply.AppendDouble(usage);
}

}  // namespace zot
