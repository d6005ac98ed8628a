// Accepts connections: keeps descriptors free for running requests, asks the filter, counts and
// logs what came, and starts the session of whoever may come in.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "agent/agent_control.h"
#include "base/owners.h"

namespace zot {

// The exit code of an agent that cannot listen, or accept.
inline constexpr int kExitListen = 4;

class Front {
  public:
    // `descriptorLimit` is the number of descriptors that the process may have, 0 if unknown.
    Front(AgentServices& services, int descriptorLimit);

    // Accepts from `socket` from now on; the one before it, if any, is closed then.
    void Listen(UniqueFd socket);
    // Closes the socket: nothing is accepted until the next Listen.
    void StopListening();

    // Waits for a connection, a wake-up, a hang-up or the next second, and accepts what has come.
    void WaitForConnection();

  private:
    void Accept();
    void Refuse(UniqueFd socket, uint32_t peerAddress);
    bool DescriptorsRunShort() const;

    AgentServices& services_;
    UniqueFd socket_;
    int descriptorLimit_;

    // Refused connections are shut down but stay open for a while; the oldest is closed when its
    // place is needed, so that refused peers cannot use up the descriptors.
    std::array<UniqueFd, 64> refused_;
    size_t oldestRefused_ = 0;
};

}  // namespace zot
