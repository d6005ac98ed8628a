#include "config/settings.h"

#include <utility>

namespace zot {

SettingsStore::SettingsStore() { Publish(std::make_shared<AgentSettings>()); }

SettingsStore::~SettingsStore() = default;

SettingsSnapshot SettingsStore::Snapshot() const {
    std::lock_guard<std::mutex> lock(snapshotMutex_);
    return current_;
}

bool SettingsStore::Change(const std::function<bool(AgentSettings&)>& change) {
    std::lock_guard<std::mutex> lock(configMutex_);
    return ChangeLocked(change);
}

std::optional<bool> SettingsStore::TryChange(const std::function<bool(AgentSettings&)>& change) {
    std::unique_lock<std::mutex> lock(configMutex_, std::try_to_lock);
    if (!lock.owns_lock()) return std::nullopt;
    return ChangeLocked(change);
}

bool SettingsStore::ChangeLocked(const std::function<bool(AgentSettings&)>& change) {
    auto fresh = std::make_shared<AgentSettings>(*Snapshot());
    bool result = change(*fresh);
    fresh->password.Terminate();  // nothing of a longer, older one stays after its end
    Publish(std::move(fresh));
    return result;
}

void SettingsStore::Publish(std::shared_ptr<AgentSettings> changed) {
    changed->revision = ++revisions_;
    SettingsSnapshot fresh = std::move(changed);
    latest_.store(fresh.get());
    {
        std::lock_guard<std::mutex> lock(snapshotMutex_);
        std::swap(current_, fresh);
    }
    // The crash handler first raises its flag and then reads `latest_`; here it is the other way
    // round. So it either sees the new record, or the old one is kept for it.
    if (crashing_.load()) keptForCrash_.push_back(std::move(fresh));
}

const AgentSettings& SettingsStore::ForCrashHandler() noexcept {
    crashing_.store(true);
    return *latest_.load();
}

}  // namespace zot
