// The main thread's last step: opens the listening socket, and carries out what is asked of the
// process.
#pragma once

#include <cstdint>
#include <optional>

#include "agent/agent_control.h"
#include "agent/crew.h"
#include "agent/daemon.h"
#include "agent/front.h"
#include "agent/signals.h"
#include "base/owners.h"
#include "base/platform/readiness.h"
#include "base/sockets.h"
#include "base/vystring.h"
#include "config/settings.h"
#include "protocol/packet.h"

namespace zot {

inline constexpr int kOpenAttempts = 3;

// Opens the listening socket for the host and port of the settings, with one second of sleep after
// each failure. Returns no descriptor and `errorText` when all attempts fail, or at once for a port
// outside 1 to 65535.
UniqueFd OpenListeningSocket(const AgentSettings& settings, VyString& errorText,
                             PortUse use = PortUse::kFree, int attempts = kOpenAttempts);

class Listener {
  public:
    // `socket` listens on the port of the current settings. `descriptorLimit` is the number of
    // descriptors that the process may have, 0 if unknown.
    Listener(AgentServices& services, UniqueFd socket, PidFile& pidFile,
             const StartArguments& arguments, int descriptorLimit);

    // Ends only with the process.
    [[noreturn]] void Run();

  private:
    void HandleRequests();
    void WriteAuditCounts(int64_t now);
    [[noreturn]] void Terminate();
    void Replace();
    void WaitForWork();
    void ReloadConfig();
    void Restart();
    void Upgrade();
    void Reopen();
    void SettlePort();
    bool PortIsSettled() const;
    void SwitchPort();
    void ReturnToOpenPort();
    bool RestorePort();

    AgentServices& services_;
    Readiness readiness_;
    PasswordKeys passwords_;
    Front front_;
    Crew crew_;
    int32_t openPort_;
    std::optional<int32_t>
        failedPort_;          // one that could not be opened and is still in the settings
    bool reloadDue_ = false;  // a hang-up came
    PidFile& pidFile_;
    StartArguments arguments_;
    bool mustReopen_ = false;  // after an upgrade that failed
    UniqueFd reserve_;         // holds the port until then
};

}  // namespace zot
