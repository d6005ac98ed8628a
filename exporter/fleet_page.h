// The pages that show the fleet at a glance, and one host with its last probe.
#pragma once

#include <ctime>
#include <map>
#include <string>

#include "exporter/fleet.h"
#include "exporter/http_exchange.h"
#include "exporter/last_probes.h"

namespace zot::exporter {

// What the reader of the landing page wants to see.
struct FleetQuery {
    std::string text;            // in name, groups, version, system or reason
    std::string state;           // "ok", "failed", "unknown"; empty for all
    std::string sort = "state";  // "host", "state", "version", "system", "age", "duration"
};

// Reads "q=TEXT&state=STATE&sort=COLUMN"; what it does not know stays as it was.
FleetQuery ReadFleetQuery(const Pairs& query);

// One row for each host of the inventory.
std::string FleetAsHtml(const Fleet& fleet, const std::map<std::string, LastProbes::Report>& probes,
                        const FleetQuery& query, time_t now);

// `report` may be null.
std::string HostAsHtml(const client::Host& host, const ExporterConfig& config,
                       const ProbeReport* report, time_t now);

}  // namespace zot::exporter
