// The main thread's last step: accepts connections and acts on what was requested of the process.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "agent/agent_control.h"
#include "agent/daemon.h"
#include "agent/signals.h"
#include "base/owners.h"
#include "base/vystring.h"
#include "config/settings.h"

namespace zot {

inline constexpr int kExitListen = 4;

// Opens the listening socket for the host and port of the settings: up to three attempts, one
// second of sleep after each failure. Returns no descriptor and `errorText` when all fail, or at
// once for a port outside 1 to 65535.
UniqueFd OpenListeningSocket(const AgentSettings& settings, VyString& errorText);

class Listener {
  public:
    // `socket` listens on the port of the current settings. `descriptorLimit` is the number of
    // descriptors that the process may have, 0 if unknown.
    Listener(AgentServices& services, UniqueFd socket, PidFile& pidFile, StartArguments arguments,
             int descriptorLimit);

    // The accept loop. Ends with the process.
    [[noreturn]] void Run();

  private:
    void HandleRequests();
    void Replace(const char* announcement, const VyString& path, const char* failure);
    void SwitchPort();
    void WaitForConnection();
    void Accept();
    void Refuse(UniqueFd socket, uint32_t peerAddress);
    bool DescriptorsRunShort() const;

    AgentServices& services_;
    UniqueFd socket_;
    int32_t openPort_;
    PidFile& pidFile_;
    StartArguments arguments_;
    int descriptorLimit_;

    // Refused connections are shut down but stay open for a while; the oldest is closed when its
    // place is needed, so that refused peers cannot use up the descriptors.
    std::array<UniqueFd, 64> refused_;
    size_t oldestRefused_ = 0;
};

}  // namespace zot
