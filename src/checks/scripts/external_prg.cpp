#include <cstdint>
#include <string_view>

#include "base/numbers.h"
#include "checks/scripts/external_program.h"
#include "checks/scripts/script_checks.h"
#include "config/settings.h"
#include "protocol/reply.h"
#include "protocol/request_text.h"

namespace zot {

void TestExternalPrg(std::string_view params, const AgentSettings& settings, Reply& reply) {
    int32_t timeoutMs = 0;
    if (!ParseInt(GetLine(params, 4), timeoutMs)) return reply.Start("501", "Wrong parameter");
    std::string_view command = OwnLine(params, 1);
    // Servers know this refusal by its bare code, unlike the one of the action.
    if (command.empty()) return reply.Start("501");
    RunAndReply(command, {}, timeoutMs, settings, reply);
}

}  // namespace zot
