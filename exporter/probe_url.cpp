#include "exporter/probe_url.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "client/text.h"

namespace zot::exporter {
namespace {

using client::Concat;
using client::Visible;
using std::chrono::milliseconds;

void AddChecks(const Module& module, std::vector<PlannedCheck>& checks) {
    for (const Check& check : module.checks) {
        bool planned = std::any_of(checks.begin(), checks.end(), [&](const PlannedCheck& other) {
            return other.check->name == check.name;
        });
        if (!planned) checks.push_back({&check, module.timeout});
    }
}

bool ReadModules(std::string_view names, const Fleet& fleet, ProbeOrder& order,
                 std::string& error) {
    while (true) {
        size_t end = std::min(names.find(','), names.size());
        std::string_view name = names.substr(0, end);
        const Module* module = fleet.config.FindModule(name);
        if (!module) {
            error = Concat({"there is no module '", Visible(name), "' in the configuration"});
            return false;
        }
        AddChecks(*module, order.checks);
        if (end == names.size()) return true;
        names.remove_prefix(end + 1);
    }
}

}  // namespace

bool ReadProbeQuery(const Pairs& query, const Fleet& fleet, ProbeOrder& order, std::string& error) {
    const std::string *target = nullptr, *modules = nullptr, *debug = nullptr;
    for (const auto& [name, value] : query) {
        const std::string** place = name == "target"   ? &target
                                    : name == "module" ? &modules
                                    : name == "debug"  ? &debug
                                                       : nullptr;
        if (!place || *place) {
            error = Concat({Visible(name), place ? " is in the URL twice" : " is no parameter"});
            return false;
        }
        *place = &value;
    }
    if (!target || !modules) {
        error = "the URL needs target=HOST and module=NAME";
        return false;
    }
    if (debug && *debug != "true" && *debug != "false") {
        error = "debug must be true or false";
        return false;
    }
    order.inWords = debug && *debug == "true";
    order.host = fleet.inventory.Find(*target);
    if (!order.host) {
        error = Concat({"there is no host '", Visible(*target), "' in the inventory"});
        return false;
    }
    return ReadModules(*modules, fleet, order, error);
}

milliseconds ProbeTimeout(std::string_view scrapeTimeout) {
    constexpr double kUsual = 10, kReserve = 0.5, kDay = 86400;
    double seconds = 0;
    if (!client::ParseDecimal(scrapeTimeout, seconds) || !(seconds > 0) || seconds > kDay) {
        seconds = kUsual + kReserve;
    }
    seconds = std::max(seconds - kReserve, seconds / 2);
    return milliseconds(std::max<int64_t>(static_cast<int64_t>(seconds * 1000), 1));
}

}  // namespace zot::exporter
