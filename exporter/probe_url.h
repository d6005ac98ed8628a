// What a scrape asks for: the host and the modules that a URL names, and the time it has.
#pragma once

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

#include "exporter/fleet.h"
#include "exporter/http_exchange.h"
#include "exporter/probe_run.h"

namespace zot::exporter {

struct ProbeOrder {
    const client::Host* host = nullptr;  // of the fleet, as what follows
    std::vector<PlannedCheck> checks;
    bool inWords = false;
};

// Reads "target=HOST&module=A,B[&debug=true]". A URL chooses among the hosts of the inventory and
// the modules of the configuration; nothing of it goes into a request. False with the error text.
bool ReadProbeQuery(const Pairs& query, const Fleet& fleet, ProbeOrder& order, std::string& error);

// How long a probe may take: half a second less than the scrape's own limit, which the header tells
// in seconds, and not less than half of that limit; 10 s where there is none.
std::chrono::milliseconds ProbeTimeout(std::string_view scrapeTimeout);

}  // namespace zot::exporter
