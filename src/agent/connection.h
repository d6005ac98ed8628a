// One accepted connection, with as much of its packet as has arrived.
#pragma once

#include <atomic>
#include <cstdint>
#include <utility>

#include "agent/agent_control.h"
#include "base/owners.h"
#include "commands/agent_info.h"
#include "config/log.h"
#include "protocol/packet_intake.h"

namespace zot {

// The other end of a connection.
struct Peer {
    uint32_t address = 0;  // IPv4, network byte order
    uint16_t port = 0;     // host byte order
};

// Counts as an active connection as long as it lives.
class ActiveMark {
  public:
    ActiveMark() = default;
    explicit ActiveMark(ConnectionCounters& counters) noexcept
        : active_(&counters.activeConnections) {
        ++*active_;
        ++counters.openedConnections;
    }
    ActiveMark(ActiveMark&& other) noexcept : active_(std::exchange(other.active_, nullptr)) {}
    ActiveMark& operator=(ActiveMark&& other) noexcept {
        Clear();
        active_ = std::exchange(other.active_, nullptr);
        return *this;
    }
    ~ActiveMark() { Clear(); }
    void Clear() noexcept {
        if (active_ != nullptr) --*std::exchange(active_, nullptr);
    }

  private:
    std::atomic<int32_t>* active_ = nullptr;
};

struct Connection {
    ActiveMark mark;  // outlives the socket: a connection is active until it is closed
    UniqueFd socket;
    Peer peer;
    uint64_t tag = 0;         // never used twice; 0 before the connection first waits
    int64_t silentSince = 0;  // StartOfWholeSecond() at its last byte
    PacketIntake intake;
};

// Logs the end of the connection and closes it.
void Close(Connection& connection, Log& log);

}  // namespace zot
