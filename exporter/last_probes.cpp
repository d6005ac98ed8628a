#include "exporter/last_probes.h"

#include <utility>

namespace zot::exporter {

LastProbes::Report LastProbes::Put(ProbeReport report) {
    std::lock_guard lock(reportsMutex_);
    Report& place = reports_[report.host];
    if (place && report.version.empty()) {
        report.version = place->version;
        report.system = place->system;
    }
    return place = std::make_shared<const ProbeReport>(std::move(report));
}

LastProbes::Report LastProbes::Of(const std::string& host) const {
    std::lock_guard lock(reportsMutex_);
    auto found = reports_.find(host);
    return found == reports_.end() ? nullptr : found->second;
}

std::map<std::string, LastProbes::Report> LastProbes::All() const {
    std::lock_guard lock(reportsMutex_);
    return reports_;
}

}  // namespace zot::exporter
