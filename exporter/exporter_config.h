// The configuration: where the hosts are listed, and the modules, each a list of checks.
#pragma once

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

#include "client/inventory.h"
#include "exporter/check_types.h"

namespace zot::exporter {

struct Module {
    std::string name;
    std::chrono::milliseconds timeout{10000};
    std::vector<Check> checks;
};

struct ExporterConfig {
    std::string hosts;  // folder, list or file_sd JSON
    std::string state;  // folder for the positions of log checks; empty where there are none
    client::Inventory::Defaults defaults;
    std::chrono::milliseconds timeout{10000};
    // A check of the same name in several modules is the same check.
    std::vector<Module> modules;

    const Module* FindModule(std::string_view name) const;
};

// Reads and checks the file. Relative paths count from its folder. False after adding all that is
// wrong to `mistakes`, as lines "FILE:LINE:COLUMN: text".
bool ReadConfig(const std::string& path, ExporterConfig& config,
                std::vector<std::string>& mistakes);

// The configuration in force, with all defaults in it. It holds no password.
std::string ConfigAsYaml(const ExporterConfig& config);

}  // namespace zot::exporter
