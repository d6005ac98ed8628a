#include <string_view>

#include "base/vystring.h"
#include "checks/scripts/configured_script.h"
#include "checks/scripts/script_checks.h"
#include "checks/scripts/script_output.h"
#include "checks/scripts/temp_name.h"
#include "config/settings.h"
#include "protocol/reply.h"
#include "protocol/request_text.h"

namespace zot {

void TestProcess(std::string_view params, const AgentSettings& settings, Reply& reply) {
    if (!ScriptIsUsable(settings.procCntScript, "ProcCnt", reply)) return;
    std::string_view name = GetLine(params, 2);
    if (name.empty()) return reply.Start("501", "Name of the process is not specified");
    VyString command = settings.procCntScript;
    command.Append(' ');
    // The shell gets the name unchanged: quotes, patterns and operators in it take effect.
    command.Append(name);
    TempFile file;
    ScriptOutput output;
    if (!RunForOutput(command, settings, file, output, reply)) return;
    int count = 0;
    if (!output.ReadInt(count)) return reply.Start("301", "Script error");
    reply.Start("200");
    reply.AppendInt(count);
}

}  // namespace zot
