// What the test and the action that run a program share.
#pragma once

#include <cstdint>
#include <string_view>

#include "config/settings.h"
#include "protocol/reply.h"

namespace zot {

// Runs the command quietly and replies with its exit code, or with the reason why it did not run.
void RunAndReply(std::string_view command, std::string_view workDir, int32_t timeoutMs,
                 const AgentSettings& settings, Reply& reply);

}  // namespace zot
