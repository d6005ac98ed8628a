// One request, once its packet is whole: open it, answer it, close the connection.
//
// The session knows sockets and bytes; the packet codec and the dispatcher decide what the bytes
// mean.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "agent/agent_control.h"
#include "agent/connection.h"
#include "agent/upgrade.h"
#include "base/clock.h"
#include "commands/dispatcher.h"
#include "config/settings.h"
#include "protocol/packet.h"
#include "protocol/reply.h"

namespace zot {

class Crew;

class Session : private ProcessControl {
  public:
    // `crew` hears when the thread will be busy for long.
    Session(AgentServices& services, Crew& crew, PasswordKeys& passwords, Connection connection);
    // Closes the connection, and only then passes on what its request asked of the process (to end,
    // to restart).
    ~Session() override;
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // Serve the connection to its end: with the packet that the connection has collected, or with
    // this one.
    void Serve();
    void Serve(std::span<char> packet);

  private:
    void BeforeLongWork() override;
    void RequestTerminate() override { terminateAsked_ = true; }
    void RequestReload() override { reloadAsked_ = true; }
    void BeginUpgrade(std::string_view params, Reply& reply) override;

    template <typename Opener>
    void ServeOpened(Opener open);
    void Answer(const AgentSettings& settings);
    void ReceiveUpgrade();
    void TakeUpgradeBytes(std::string_view bytes);
    void Send(Reply reply);
    bool SendNow(std::string_view bytes, int flags);
    void SendAtLength(std::string_view bytes);

    AgentServices& services_;
    Crew& crew_;
    PasswordKeys& passwords_;
    Connection connection_;
    RequestPacket request_;
    UpgradeTransfer upgrade_;
    const int64_t begun_ = MonotonicMs();
    bool terminateAsked_ = false;
    bool reloadAsked_ = false;
};

}  // namespace zot
