// What the agent tells about itself: GetInfo and GetSettings.
#pragma once

#include <atomic>
#include <cstdint>

#include "config/settings.h"
#include "protocol/reply.h"

namespace zot {

inline constexpr char kAgentName[] = "VY Remote Monitoring Agent";
inline constexpr char kAgentPlatform[] = "FreeBSD";
extern const char kAgentVersion[];  // the project's, from the build
inline constexpr char kDeveloperName[] = "The zot developers";
inline constexpr char kDeveloperWeb[] = "https://zot.example.org";
inline constexpr char kDeveloperMail[] = "zot@example.org";

// Changed by the listener and the sessions, read for GetInfo.
struct ConnectionCounters {
    std::atomic<int32_t> activeConnections{0};  // sessions now running
    std::atomic<int32_t> openedConnections{0};  // sessions started since the process began
    std::atomic<int32_t> failedConnections{0};  // connections refused by the filter
};

// Both ignore the request's parameters and cannot fail.
void GetInfo(const AgentSettings& settings, const ConnectionCounters& counters, Reply& reply);
void GetSettings(const AgentSettings& settings, const ConnectionCounters& counters, Reply& reply);

}  // namespace zot
