// Where a request goes.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace zot::client {

// Replies are lists of values; anything longer is not a reply, and its announced length takes no
// memory.
inline constexpr uint32_t kMaxReplySize = 64 * 1024 * 1024;

struct Target {
    std::string host = "127.0.0.1";  // name or IPv4 address
    uint16_t port = 1055;
    std::string password;
    std::chrono::milliseconds timeout{10000};  // for the whole exchange, name resolution included
};

}  // namespace zot::client
