// Asks one agent over TCP, step by step or all at once, and waits for the answer. For many agents
// there is the engine (client/engine.h).
//
// Operations return true, or false with a text that tells a person what went wrong.
#pragma once

#include <string>
#include <string_view>

#include "base/owners.h"
#include "client/deadline.h"
#include "client/request_packet.h"
#include "client/target.h"

namespace zot::client {

// One connection, for upgrades and for tests that send what no server would.
class AgentConnection {
  public:
    // Connects to the first IPv4 address of the host that accepts.
    bool Open(const std::string& host, uint16_t port, const Deadline& deadline, std::string& error);
    // Sends all the bytes.
    bool Send(std::string_view bytes, const Deadline& deadline, std::string& error);
    // Receives one reply packet and opens it with the session key. Reads no byte after it, so that
    // a second reply can follow.
    bool ReceiveReply(std::string_view sessionKey, const Deadline& deadline, std::string& text,
                      std::string& error);
    int Fd() const { return socket_.Get(); }
    void Close() { socket_.Reset(); }

  private:
    UniqueFd socket_;
};

// Sends the request text unchanged under a fresh session key, and receives the reply.
bool Ask(const Target& target, std::string_view requestText, Answer& answer, std::string& error);

}  // namespace zot::client
