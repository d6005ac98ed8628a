#include "exporter/last_probes.h"

#include <utility>

namespace zot::exporter {

void LastProbes::Put(Report report) {
    std::lock_guard lock(reportsMutex_);
    Report& place = reports_[report->host];
    place.swap(report);
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
