#include "base/own_connections.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <mutex>
#include <utility>
#include <vector>

namespace zot {
namespace {

// How many connections to the agent's own port can be closed but not yet served: this is above the
// longest queue of a listening socket. One that was reset in that queue stays until others push it
// out.
constexpr ptrdiff_t kMostClosed = 1024;

struct Connection {
    uint64_t id;
    uint32_t address;  // of the agent's end
    uint16_t port;
    uint16_t toPort;
    bool open = true;
    bool served = false;
};

class OwnConnections {
  public:
    uint64_t Add(const sockaddr_in& end, uint16_t toPort) {
        std::lock_guard<std::mutex> lock(ownMutex_);
        connections_.push_back({++lastId_, end.sin_addr.s_addr, ntohs(end.sin_port), toPort});
        count_.store(connections_.size());
        return lastId_;
    }

    void Close(uint64_t id) noexcept {
        std::lock_guard<std::mutex> lock(ownMutex_);
        auto closed = std::find_if(connections_.begin(), connections_.end(),
                                   [id](const Connection& one) { return one.id == id; });
        if (closed == connections_.end()) return;
        closed->open = false;
        bool toSelf = std::find(listeningPorts_.begin(), listeningPorts_.end(), closed->toPort) !=
                      listeningPorts_.end();
        if (closed->served || !toSelf) connections_.erase(closed);
        auto isClosed = [](const Connection& one) { return !one.open; };
        if (std::count_if(connections_.begin(), connections_.end(), isClosed) > kMostClosed) {
            connections_.erase(std::find_if(connections_.begin(), connections_.end(), isClosed));
        }
        count_.store(connections_.size());
    }

    bool Has(uint32_t address, uint16_t port) {
        if (count_.load() == 0) return false;
        std::lock_guard<std::mutex> lock(ownMutex_);
        return std::any_of(connections_.begin(), connections_.end(), [=](const Connection& one) {
            return one.address == address && one.port == port;
        });
    }

    void Served(uint32_t address, uint16_t port) noexcept {
        if (count_.load() == 0) return;
        std::lock_guard<std::mutex> lock(ownMutex_);
        std::erase_if(connections_, [=](Connection& one) {
            if (one.address != address || one.port != port) return false;
            one.served = true;
            return !one.open;
        });
        count_.store(connections_.size());
    }

    void Listening(uint16_t port) {
        std::lock_guard<std::mutex> lock(ownMutex_);
        if (std::find(listeningPorts_.begin(), listeningPorts_.end(), port) ==
            listeningPorts_.end()) {
            listeningPorts_.push_back(port);
        }
    }

  private:
    std::mutex ownMutex_;  // guards what follows
    std::vector<Connection> connections_;
    std::vector<uint16_t> listeningPorts_;
    uint64_t lastId_ = 0;
    std::atomic<size_t> count_{0};  // of the connections, usually 0
};

// Never destroyed: sessions still connect while the process ends.
OwnConnections& ownConnections = *new OwnConnections;

}  // namespace

void OutgoingSocket::Reset(int fd) noexcept {
    // Still known as the agent's own while it is being closed.
    uint64_t id = std::exchange(id_, 0);
    fd_.Reset(fd);
    if (id != 0) ownConnections.Close(id);
}

void OutgoingSocket::Remember(uint16_t port) {
    sockaddr_in end{};
    socklen_t size = sizeof end;
    if (getsockname(fd_.Get(), reinterpret_cast<sockaddr*>(&end), &size) != 0) return;
    id_ = ownConnections.Add(end, port);
}

void NoteListeningPort(uint16_t port) { ownConnections.Listening(port); }

bool IsOwnConnection(uint32_t address, uint16_t port) { return ownConnections.Has(address, port); }

void ForgetServedConnection(uint32_t address, uint16_t port) noexcept {
    ownConnections.Served(address, port);
}

}  // namespace zot
