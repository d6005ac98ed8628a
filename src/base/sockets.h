// IPv4 socket helpers for the network tests, the actions and the agent's own listener.
//
// Each client call returns a result code and fills the caller's error text, which is empty on
// success. Nothing is shared: any number of threads may call at once. Waits are measured on the
// monotonic clock and signals do not shorten them. Every socket is close-on-exec from its
// creation, and no call raises SIGPIPE.
#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <span>
#include <string_view>

#include "base/own_connections.h"
#include "base/owners.h"
#include "base/vystring.h"

namespace zot {

// Results above 0 are successes: 1, or a number of bytes where a call says so. The codes are part
// of the replies.
enum NetResult : int32_t {
    kNetOk = 1,
    kNetTimeout = 0,
    kNetResolveFailed = -2,
    kNetSocketFailed = -3,
    kNetSendFailed = -4,
    kNetReceiveFailed = -5,
    kNetConnectFailed = -6,
};

// How long to wait for a TCP peer where a request sets no limit.
inline constexpr int32_t kDefaultTcpTimeoutMs = 120000;

// The IPv4 address, in network byte order, that this machine's own name resolves to; 0 if none.
uint32_t LocalHostAddress();

// Resolves the host within `timeoutMs` (0 or less: kDefaultTcpTimeoutMs) and creates a datagram
// socket. It is neither bound nor connected, so refusals by the peer's machine are not reported.
// Only the low 16 bits of the port count.
// Returns 1, 0 on time-out, kNetResolveFailed or kNetSocketFailed.
int32_t UdpOpen(UniqueFd& socket, sockaddr_in& address, std::string_view host, int32_t port,
                int64_t timeoutMs, VyString& errorText);

// Sends one datagram. Returns the number of bytes sent or kNetSendFailed.
int32_t UdpSend(int socket, const sockaddr_in& address, std::string_view data, VyString& errorText);

// Sends `sendData`, if any, as one datagram and, if `receiveBuffer` has room, waits up to
// `timeoutSeconds` for one datagram; what does not fit is lost. Returns the number of bytes
// received, or sent when there is nothing to receive. 0 without a text means an empty datagram; a
// negative `timeoutSeconds` times out at once.
int32_t UdpRequest(std::string_view host, int32_t port, int32_t timeoutSeconds,
                   std::string_view sendData, std::span<char> receiveBuffer, VyString& errorText);

// Resolves the host and connects within `timeoutMs` in all; 0 leaves the limit to the system, and a
// negative value fails in the wait. Only the low 16 bits of the port count. Returns 1, 0 on
// time-out, or an error code. The socket is handed back whatever the result; on success it is
// non-blocking unless `timeoutMs` was 0.
int32_t TcpConnect(OutgoingSocket& socket, std::string_view host, int32_t port, int32_t timeoutMs,
                   VyString& errorText);

// Sends all the data, waiting up to `timeoutMs` each time the peer takes no more. Returns the
// number of bytes sent if there were any, else 0 on time-out or kNetSendFailed.
int32_t TcpSend(int socket, std::string_view data, int32_t timeoutMs, VyString& errorText);

// Ends the sending side of a connection and waits, up to `timeoutMs`, for the peer to end its own;
// what the peer still sends is dropped. Call before closing, else the peer may lose data it has not
// read.
void TcpFinish(int socket, int32_t timeoutMs);

// Connects, sends `sendData`, if any, with one call and, if `receiveBuffer` has room, waits for the
// first bytes of the answer. The connection and the answer each have `timeoutMs`. Returns the
// number of bytes received (0 without a text when the peer closed first), or 1 when there is
// nothing to receive.
int32_t TcpExchange(std::string_view host, int32_t port, int32_t timeoutMs,
                    std::string_view sendData, std::span<char> receiveBuffer, VyString& errorText);

// Makes the system notice a peer whose machine is gone: after 20 seconds of silence it asks every
// 10 seconds, and gives the connection up after three unanswered questions. Accepted connections
// inherit this from the listening socket.
void NoticeDeadPeers(int socket);

// Whether a reserve may hold the port.
enum class PortUse { kFree, kReserved };

// Opens a listening TCP socket on a local address (a name or dotted; empty means all) and a port
// number or service name. Returns the socket, or an empty owner with the reason in the error text.
UniqueFd OpenListener(std::string_view node, std::string_view service, VyString& errorText,
                      PortUse use = PortUse::kFree);

// Keeps an address from other users while nobody listens on it: connections are refused, and only
// this user can open it, with PortUse::kReserved. Returns the reserving socket, or an empty owner.
// Async-signal-safe.
UniqueFd ReserveAddress(const sockaddr_in& address) noexcept;
// The same for the address of a listening socket, which must be closed afterwards.
UniqueFd ReservePort(int listener) noexcept;

}  // namespace zot
