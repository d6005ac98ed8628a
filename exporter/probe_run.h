// One probe: the checks of some modules are asked of one host, all at once, and each ends by
// itself. What fails leaves the others as they are.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <vector>

#include "client/deadline.h"
#include "client/engine.h"
#include "exporter/fleet.h"
#include "exporter/log_counter.h"
#include "exporter/probe_report.h"

namespace zot::exporter {

struct PlannedCheck {
    const Check* check;                 // of the fleet
    std::chrono::milliseconds timeout;  // of the first module that has it
};

struct ProbePlan {
    std::shared_ptr<const Fleet> fleet;
    const client::Host* host = nullptr;  // of the fleet
    std::vector<PlannedCheck> checks;
    client::Deadline::Clock::time_point deadline;  // of the whole probe
};

using ProbeHandler = std::function<void(ProbeReport report)>;

// To be called on the engine's thread, on which the handler is called exactly once.
void StartProbe(client::Engine& engine, LogCounter& logs, ProbePlan plan, ProbeHandler handler);

}  // namespace zot::exporter
