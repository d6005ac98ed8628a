// Whom a request goes to.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace zot::client {

// Replies are lists of values; a longer one is no reply, and its announced length buys no memory.
inline constexpr uint32_t kMaxReplySize = 64 * 1024 * 1024;

struct Target {
    std::string host = "127.0.0.1";  // name or IPv4 address
    uint16_t port = 1055;
    std::string password;
    std::chrono::milliseconds timeout{10000};  // for the whole exchange, the host's name included
};

}  // namespace zot::client
