#include <string>
#include <string_view>

#include "base/vystring.h"
#include "checks/scripts/configured_script.h"
#include "checks/scripts/script_checks.h"
#include "checks/scripts/script_output.h"
#include "checks/scripts/temp_name.h"
#include "config/settings.h"
#include "protocol/reply.h"

namespace zot {

void GetProcessesList(std::string_view /*params*/, const AgentSettings& settings, Reply& reply) {
    if (!ScriptIsUsable(settings.procListScript, "ProcList", reply)) return;
    TempFile file;
    ScriptOutput output;
    if (!RunForOutput(settings.procListScript, settings, file, output, reply)) return;
    std::string list;
    for (std::string_view line; output.NextLine(line);) {
        if (line.ends_with('\n')) line.remove_suffix(1);
        list.append(line).append("\r\n");
    }
    reply.Start("200");
    reply.AppendLine(list, Escaping::kLineBreaks);
}

}  // namespace zot
