#include "exporter/fleet.h"

#include <optional>
#include <sstream>
#include <utility>

namespace zot::exporter {

std::shared_ptr<const Fleet> LoadFleet(const std::string& configPath,
                                       std::vector<std::string>& mistakes) {
    auto fleet = std::make_shared<Fleet>();
    if (!ReadConfig(configPath, fleet->config, mistakes)) return nullptr;
    std::istringstream noInput;
    std::string error;
    auto inventory =
        client::Inventory::Load(fleet->config.hosts, fleet->config.defaults, noInput, error);
    if (!inventory) {
        mistakes.push_back(error);
        return nullptr;
    }
    fleet->inventory = std::move(*inventory);
    return fleet;
}

FleetHolder::State FleetHolder::Current() const {
    std::lock_guard lock(stateMutex_);
    return state_;
}

bool FleetHolder::Reload(bool othersGood, std::vector<std::string>& mistakes) {
    std::shared_ptr<const Fleet> fleet = LoadFleet(configPath_, mistakes);
    if (!othersGood) fleet = nullptr;
    std::lock_guard lock(stateMutex_);
    state_.lastReloadGood = fleet != nullptr;
    if (!fleet) return false;
    state_.fleet = std::move(fleet);
    state_.loaded = time(nullptr);
    return true;
}

}  // namespace zot::exporter
