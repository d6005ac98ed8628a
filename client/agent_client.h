// Asking an agent over TCP. AgentConnection is one connection step by step, which the tests use to
// send what no server would; Ask is the whole exchange of one request.
//
// Operations return 1, or 0 with a text that tells a person what went wrong.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "base/owners.h"
#include "client/request_packet.h"

namespace zot::client {

// Replies are lists of values; a longer one is no reply, and its announced length buys no memory.
constexpr uint32_t kMaxReplySize = 64 * 1024 * 1024;

// A moment that bounds a whole exchange, however the peer spreads its bytes over time.
class Deadline {
  public:
    explicit Deadline(std::chrono::milliseconds limit)
        : end_(std::chrono::steady_clock::now() + limit) {}
    // What is left for poll(), in milliseconds: 0 when the moment has passed.
    int Remaining() const;

  private:
    std::chrono::steady_clock::time_point end_;
};

class AgentConnection {
  public:
    // Connects to the first IPv4 address of the host that accepts. Resolving a name takes as long
    // as the system's resolver takes, whatever the deadline.
    int Open(const std::string& host, uint16_t port, const Deadline& deadline, std::string& error);
    // Sends all the bytes.
    int Send(std::string_view bytes, const Deadline& deadline, std::string& error);
    // Receives one reply packet and opens it with the session key. Reads no byte behind it, so
    // that a second reply can follow.
    int ReceiveReply(std::string_view sessionKey, const Deadline& deadline, std::string& text,
                     std::string& error);
    // Appends what arrives until the peer closes or resets the connection; 0 when the deadline
    // comes first.
    int ReceiveUntilClose(const Deadline& deadline, std::string& bytes, std::string& error);

    int Fd() const { return socket_.Get(); }
    void Close() { socket_.Reset(); }

  private:
    int Receive(size_t count, const Deadline& deadline, std::string& bytes, std::string& error);

    UniqueFd socket_;
};

struct Target {
    std::string host = "127.0.0.1";
    uint16_t port = 1055;
    std::string password;
    std::chrono::milliseconds timeout{10000};  // for the whole exchange
};

// Sends the request text as it stands under a fresh session key, and receives the reply text.
int Exchange(const Target& target, std::string_view requestText, std::string& replyText,
             std::string& error);
// The same with the reply taken apart; a text that is no reply is a failure.
int Ask(const Target& target, std::string_view requestText, Answer& answer, std::string& error);

}  // namespace zot::client
