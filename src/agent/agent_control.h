// What the sessions and the main thread share: the request flags and the way to wake the main loop.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <utility>

#include "agent/upgrade.h"
#include "agent/waker.h"
#include "base/clock.h"
#include "base/vystring.h"
#include "commands/agent_info.h"
#include "config/log.h"
#include "config/settings.h"

namespace zot {

class AgentControl {
  public:
    std::atomic<bool> terminateRequest{false};
    std::atomic<bool> reloadRequest{false};
    std::atomic<bool> upgradeRequest{false};
    const int64_t startTime = MonotonicSeconds();
    Waker waker;  // poked when a flag was raised
    UpgradeGate upgradeGate;

    // The script to execute for an upgrade request; stored before the flag is raised. Needs no
    // memory, since a session calls it at its very end.
    void RequestUpgrade(VyString scriptPath) noexcept {
        std::lock_guard<std::mutex> lock(scriptMutex_);
        upgradeScriptPath_ = std::move(scriptPath);
        upgradeRequest.store(true);
    }
    VyString UpgradeScriptPath() {
        std::lock_guard<std::mutex> lock(scriptMutex_);
        return upgradeScriptPath_;
    }

  private:
    std::mutex scriptMutex_;
    VyString upgradeScriptPath_;
};

// Everything a session needs of the process it runs in.
struct AgentServices {
    SettingsStore& settings;
    Log& log;
    AgentControl& control;
    ConnectionCounters& counters;
};

}  // namespace zot
