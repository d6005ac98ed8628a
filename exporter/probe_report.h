// What a probe found out, as metrics for Prometheus and in words for people.
#pragma once

#include <ctime>
#include <string>
#include <vector>

#include "client/failure.h"

namespace zot::exporter {

struct CheckReport {
    std::string name;
    client::Failure failure = client::Failure::kLocal;
    std::string message;  // for people; empty when the check succeeded
    double seconds = 0;
};

struct ProbeReport {
    std::string host;
    time_t begun = 0;
    double seconds = 0;
    client::Failure failure = client::Failure::kNone;  // of the first check that failed
    std::vector<CheckReport> checks;
    std::string version;  // of the agent; empty when it was not asked or did not answer
    std::string system;
    std::string metrics;  // all of them in text format
};

// What went wrong first, for people; empty when nothing did.
std::string FirstMessage(const ProbeReport& report);

// The report in words, with the metrics below.
std::string InWords(const ProbeReport& report);

}  // namespace zot::exporter
