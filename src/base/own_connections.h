// The TCP connections that the agent itself has opened.
//
// A check can be aimed at the agent's own port. What arrives there was written by whoever asked for
// the check, not by a process of this host that may manage the agent, whatever the address says. So
// an outgoing connection is known by its local end before its first byte is sent, and until it has
// been served, even if it is closed earlier.
#pragma once

#include <cstdint>

#include "base/owners.h"

namespace zot {

// The socket of an outgoing connection.
class OutgoingSocket {
  public:
    OutgoingSocket() = default;
    ~OutgoingSocket() { Reset(); }
    OutgoingSocket(const OutgoingSocket&) = delete;
    OutgoingSocket& operator=(const OutgoingSocket&) = delete;

    int Get() const noexcept { return fd_.Get(); }
    explicit operator bool() const noexcept { return static_cast<bool>(fd_); }
    // Closes the socket and takes over another one.
    void Reset(int fd = -1) noexcept;
    // Call once the socket has its local address, before anything is sent; `port` is the one it
    // connects to.
    void Remember(uint16_t port);

  private:
    UniqueFd fd_;
    uint64_t id_ = 0;  // of what is remembered; 0 for nothing
};

// Notes that the process listens, or has listened, on this port.
void NoteListeningPort(uint16_t port);

// Whether the peer of an accepted connection (address in network byte order, port in host byte
// order) is the agent itself.
bool IsOwnConnection(uint32_t address, uint16_t port);

// Call when the connection from this peer has been served to its end.
void ForgetServedConnection(uint32_t address, uint16_t port) noexcept;

}  // namespace zot
