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
#include "config/audit_log.h"
#include "config/log.h"
#include "config/settings.h"
#include "protocol/request_guard.h"

namespace zot {

class AgentControl {
  public:
    explicit AgentControl(Log& log) : auditLog(log) {}

    std::atomic<bool> terminateRequest{false};
    std::atomic<bool> reloadRequest{false};
    std::atomic<bool> upgradeRequest{false};
    const int64_t startTime = MonotonicSeconds();
    Waker waker;  // woken when a flag is raised
    UpgradeGate upgradeGate;
    RequestGuard requestGuard;
    AuditLog auditLog;

    // Leaves the order to the main loop and then raises the flag. Needs no memory, because a
    // session calls it at its very end.
    void RequestUpgrade(UpgradeOrder order) noexcept {
        std::lock_guard<std::mutex> lock(orderMutex_);
        upgradeOrder_ = std::move(order);
        upgradeRequest.store(true);
    }
    UpgradeOrder TakeUpgradeOrder() noexcept {
        std::lock_guard<std::mutex> lock(orderMutex_);
        return std::move(upgradeOrder_);
    }

  private:
    std::mutex orderMutex_;
    UpgradeOrder upgradeOrder_;
};

// Everything that a session needs from its process.
struct AgentServices {
    SettingsStore& settings;
    Log& log;
    AgentControl& control;
    ConnectionCounters& counters;
};

}  // namespace zot
