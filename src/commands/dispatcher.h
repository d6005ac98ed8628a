// From the text of one authenticated request to the one handler that answers it.
#pragma once

#include <cstdint>
#include <string_view>

#include "commands/agent_info.h"
#include "config/log.h"
#include "config/settings.h"
#include "protocol/reply.h"

namespace zot {

// What a management command may ask of the process. What is asked takes effect only after the
// reply was sent.
class ProcessControl {
  public:
    virtual ~ProcessControl() = default;
    virtual void RequestTerminate() = 0;
    virtual void RequestReload() = 0;
    // Called before a handler that may work for long.
    virtual void BeforeLongWork() = 0;
    // Answers UpgradeCode; when it starts a transfer, what follows on the connection belongs to it.
    virtual void BeginUpgrade(std::string_view params, Reply& reply) = 0;
};

// One request on its way to its handler.
struct RequestContext {
    std::string_view params;        // everything after the command line
    const AgentSettings& settings;  // as they were when the packet came in
    SettingsStore& store;
    const ConnectionCounters& counters;
    ProcessControl& control;
    uint32_t peerAddress;   // IPv4, network byte order
    uint16_t peerPort = 0;  // host byte order
};

// Answers the request: splits off the command, checks the peer's right to it and runs its handler.
// `request.params` is set here. Returns true when the command was recognised, whatever the
// handler replied; false for a void or unknown command or a missing end-of-transmission mark.
bool Dispatch(std::string_view requestText, RequestContext& request, Log& log, Reply& reply);

}  // namespace zot
