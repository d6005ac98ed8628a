// From the text of one authenticated request to the handler that answers it.
#pragma once

#include <cstdint>
#include <string_view>

#include "commands/agent_info.h"
#include "config/log.h"
#include "config/settings.h"
#include "protocol/reply.h"

namespace zot {

// What a management command may ask of the process. It takes effect only after the reply was sent.
class ProcessControl {
  public:
    virtual ~ProcessControl() = default;
    virtual void RequestTerminate() = 0;
    virtual void RequestReload() = 0;
    // Called before a handler that may take long.
    virtual void BeforeLongWork() = 0;
    // Answers UpgradeCode. If it starts a transfer, what follows on the connection belongs to that.
    virtual void BeginUpgrade(std::string_view params, Reply& reply) = 0;
};

// One request on its way to its handler.
struct RequestContext {
    std::string_view params;        // everything after the command line
    const AgentSettings& settings;  // as they were when the packet was whole
    SettingsStore& store;
    const ConnectionCounters& counters;
    ProcessControl& control;
    uint32_t peerAddress;   // IPv4, network byte order
    uint16_t peerPort = 0;  // host byte order
};

// Answers the request: splits off the command, checks whether the peer may use it and runs its
// handler. Sets `request.params`. Returns true when the command was recognised, whatever the
// handler replied; false for an empty or unknown command or a missing end-of-transmission mark.
bool Dispatch(std::string_view requestText, RequestContext& request, Log& log, Reply& reply);

}  // namespace zot
