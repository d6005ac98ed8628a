// One connection: a request packet comes in, is opened and answered, and the connection closes.
//
// The session knows sockets and bytes; what the bytes mean is decided by the packet codec and the
// dispatcher.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "agent/agent_control.h"
#include "agent/upgrade.h"
#include "base/owners.h"
#include "base/vystring.h"
#include "commands/dispatcher.h"
#include "protocol/packet.h"
#include "protocol/reply.h"

namespace zot {

// The other end of a connection.
struct Peer {
    uint32_t address = 0;  // IPv4, network byte order
    uint16_t port = 0;     // host byte order
};

class Session : private ProcessControl {
  public:
    Session(AgentServices& services, UniqueFd socket, Peer peer);
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
    void Send(Reply reply);

    AgentServices& services_;
    UniqueFd socket_;
    Peer peer_;
    VyString packet_;
    RequestPacket request_;
    UpgradeTransfer upgrade_;
    bool terminateAsked_ = false;
    bool reloadAsked_ = false;
};

// Starts a detached thread that runs the session. When none can be started, the connection is
// closed and that is logged.
void StartSession(AgentServices& services, UniqueFd socket, Peer peer);

}  // namespace zot
