// The sockets to agents and the meaning of their errors, for the engine and for step-by-step
// connections.
#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <string>

#include "base/owners.h"
#include "client/failure.h"

namespace zot::client {

// A non-blocking socket that connects. `error` is 0 when it is connected, EINPROGRESS when it
// becomes writable once that is decided, and anything else when there is no socket.
UniqueFd BeginConnect(in_addr address, uint16_t port, int& error);
// The result of a connection attempt: 0 or an error number.
int ConnectError(int fd);
// Our end of the connection; 0.0.0.0 when it is not known.
in_addr OwnEnd(int fd);

// What a connection that failed with this error number means.
Failure ConnectFailure(int errorNumber);
// The system's words for an error number.
std::string ErrorText(int errorNumber);
// "cannot connect to HOST port PORT: " and the system's words.
std::string ConnectMessage(const std::string& host, uint16_t port, int errorNumber);

// The messages for an agent that closed the connection before a reply, or in the middle of one.
inline constexpr const char* kClosedMessage =
    "the agent closed the connection without a reply: wrong password, or it does not serve this "
    "address";
inline constexpr const char* kBrokenOffMessage =
    "the agent closed the connection in the middle of its reply";
inline constexpr const char* kTimeoutMessage = "no complete reply within the time limit";
inline constexpr const char* kNoReplyMessage =
    "not a reply: its text has no status code or no end mark";

}  // namespace zot::client
