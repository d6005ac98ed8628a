#include <cstdint>
#include <string_view>

#include "base/numbers.h"
#include "checks/scripts/external_program.h"
#include "checks/scripts/script_checks.h"
#include "config/settings.h"
#include "protocol/reply.h"
#include "protocol/request_text.h"

namespace zot {

void ActExternalCmd(std::string_view params, const AgentSettings& settings, Reply& reply) {
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
