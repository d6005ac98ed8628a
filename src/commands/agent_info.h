// What the agent says about itself: GetInfo and GetSettings.
#pragma once

#include <atomic>
#include <cstdint>

#include "config/settings.h"
#include "protocol/reply.h"

namespace zot {

inline constexpr char kAgentName[] = "VY Remote Monitoring Agent";
inline constexpr char kAgentPlatform[] = "FreeBSD";
extern const char kAgentVersion[];  // the version of the project
inline constexpr char kDeveloperName[] = "The zot developers";
inline constexpr char kDeveloperWeb[] = "https://zot.example.org";
inline constexpr char kDeveloperMail[] = "zot@example.org";

// The listener and the sessions change them, GetInfo reads them.
struct ConnectionCounters {
    std::atomic<int32_t> activeConnections{0};  // now open
    std::atomic<int32_t> openedConnections{0};  // since the process started
    std::atomic<int32_t> failedConnections{0};  // refused by the filter
};

// Both ignore the request's parameters and cannot fail.
void GetInfo(const AgentSettings& settings, const ConnectionCounters& counters, Reply& reply);
void GetSettings(const AgentSettings& settings, const ConnectionCounters& counters, Reply& reply);

}  // namespace zot
