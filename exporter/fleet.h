// Whom the exporter may ask and what: configuration and inventory of one load, which belong
// together and never change. A reload puts another fleet in its place; probes that run keep theirs.
#pragma once

#include <ctime>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "client/inventory.h"
#include "exporter/exporter_config.h"

namespace zot::exporter {

struct Fleet {
    ExporterConfig config;
    client::Inventory inventory;
};

// Nullptr with what is wrong, as ReadConfig has it.
std::shared_ptr<const Fleet> LoadFleet(const std::string& configPath,
                                       std::vector<std::string>& mistakes);

class FleetHolder {
  public:
    struct State {
        std::shared_ptr<const Fleet> fleet;
        bool lastReloadGood = true;
        time_t loaded = 0;  // when the fleet was loaded
    };

    // REQUIRES a fleet that was loaded from `configPath`.
    FleetHolder(std::string configPath, std::shared_ptr<const Fleet> fleet)
        : configPath_(std::move(configPath)), state_{std::move(fleet), true, time(nullptr)} {}

    State Current() const;
    // Loads the files again, after other parts of the configuration were read well or not. False
    // with what is wrong in any of it; then the old fleet stays.
    bool Reload(bool othersGood, std::vector<std::string>& mistakes);

  private:
    std::string configPath_;
    mutable std::mutex stateMutex_;
    State state_;
};

}  // namespace zot::exporter
