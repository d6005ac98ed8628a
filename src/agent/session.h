// One connection: a request packet comes in, is opened and answered, and the connection closes.
//
// The session knows sockets and bytes; what the bytes mean is decided by the packet codec and the
// dispatcher.
#pragma once

#include <cstdint>
#include <optional>

#include "agent/agent_control.h"
#include "agent/upgrade.h"
#include "base/owners.h"
#include "base/vystring.h"
#include "commands/dispatcher.h"
#include "protocol/packet.h"

namespace zot {

class Session : private ProcessControl {
  public:
    // `peerAddress` is IPv4 in network byte order.
    Session(AgentServices& services, UniqueFd socket, uint32_t peerAddress);
    ~Session() override;
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // Serves the connection to its end. What its request asked of the process (to end, to restart)
    // is passed on when the session is destroyed, after the connection was closed.
    void Run();

  private:
    void RequestTerminate() override { terminateAsked_ = true; }
    void RequestReload() override { reloadAsked_ = true; }
    void BeginUpgrade(std::string_view params, Reply& reply) override;

    bool WaitForData();
    bool TakeBytes(std::string_view bytes);
    bool Answer();
    bool TakeUpgradeBytes(std::string_view bytes);
    void Send(Reply& reply);

    AgentServices& services_;
    UniqueFd socket_;
    uint32_t peerAddress_;
    VyString packet_;
    RequestPacket request_;
    UpgradeTransfer upgrade_;
    bool terminateAsked_ = false;
    bool reloadAsked_ = false;
};

// Starts a detached thread that runs the session. When none can be started, the connection is
// closed and that is logged.
void StartSession(AgentServices& services, UniqueFd socket, uint32_t peerAddress);

}  // namespace zot
