// Lets connections in and receives from them until a packet is whole. Nothing here waits for a
// peer, and no handler runs here.
//
// Strangers are peers that have not shown the right password digest. They cost no thread; while
// descriptors run short, the stranger that came first goes for each new connection.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <span>
#include <string_view>
#include <vector>

#include "agent/agent_control.h"
#include "agent/connection.h"
#include "agent/waiting.h"
#include "base/owners.h"
#include "base/platform/readiness.h"
#include "protocol/packet.h"

namespace zot {

// The exit code of an agent that cannot listen, or accept.
inline constexpr int kExitListen = 4;

// The most that one receive takes. Servers can observe it: bytes after a complete packet spoil it
// only when they arrive with the packet's last receive.
inline constexpr size_t kReceiveSize = 1024;

// The connections whose packets one event has completed.
struct Arrivals {
    // The first connection whose packet came in one piece: its packet stays in the buffer,
    // uncopied. There is none when the size is 0.
    Connection first;
    size_t firstSize = 0;
    std::array<char, kReceiveSize> firstPacket;
    std::vector<Connection> others;
};

class Front {
  public:
    // `descriptorLimit` is the number of descriptors that the process may have, 0 if unknown.
    Front(AgentServices& services, Readiness& readiness, PasswordKeys& passwords,
          int descriptorLimit);

    // Accepts from `socket` from now on; closes the one before it, if any.
    void Listen(UniqueFd socket);
    // Accepts nothing until the next Listen, and hands back the socket, which still listens.
    UniqueFd StopListening();
    bool IsListening() const { return static_cast<bool>(socket_); }

    // Acts on an event of the queue. Any number of threads may call it; `alone` says that no other
    // thread is free now, so that this one accepts more than one connection.
    void Handle(uint64_t tag, bool alone, Arrivals& arrivals);

    // Closes the connections that were silent for too long. The time-out counts in whole seconds of
    // the clock, from the last byte.
    void Expire();
    // When Expire has something to do, on the clock of MonotonicMs; INT64_MAX for never.
    int64_t NextExpiry() const;

    // Accepts again after a shortage, if it has passed. Called when descriptors may have become
    // free.
    void Resume();

    // Whether accepting has failed for good, which has been logged.
    bool HasFailed() const { return failed_.load(); }

  private:
    struct Accepted {
        UniqueFd socket;
        Peer peer;
    };

    size_t AcceptSome(std::span<Accepted> accepted);
    bool AcceptOne(Accepted& accepted);
    void Fail(int error);
    bool MakeRoom(int descriptor);
    bool DescriptorsRunShort() const;
    size_t CloseStrangers(size_t count);
    void Welcome(Accepted& accepted, Arrivals& arrivals);
    bool MayComeIn(const Accepted& accepted);
    void Refuse(UniqueFd socket, uint32_t peerAddress);
    void Receive(Connection& connection, Arrivals& arrivals);
    PacketState Take(Connection& connection, std::string_view bytes, Arrivals& arrivals);
    void Wait(Connection& connection);
    void Reject(Connection& connection);

    AgentServices& services_;
    Readiness& readiness_;
    PasswordKeys& passwords_;
    Waiting waiting_;
    const int descriptorLimit_;

    std::mutex listenMutex_;  // accepting from the socket, and replacing it
    UniqueFd socket_;
    int singleAccepts_ = 0;
    std::atomic<bool> paused_{false};
    std::atomic<bool> failed_{false};

    // Refused connections are shut down but stay open for a while. The oldest is closed when its
    // place is needed, so that refused peers cannot use up the descriptors.
    std::mutex refusedMutex_;
    std::array<UniqueFd, 64> refused_;
    size_t oldestRefused_ = 0;
};

}  // namespace zot
