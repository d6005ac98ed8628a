// The last probe of each host, for the pages.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "exporter/probe_report.h"

namespace zot::exporter {

class LastProbes {
  public:
    using Report = std::shared_ptr<const ProbeReport>;

    // Returns the report as it is kept: with the version and the system that the agent last told,
    // where this probe did not ask.
    Report Put(ProbeReport report);
    // Nullptr when the host was not probed yet.
    Report Of(const std::string& host) const;
    // Those of all hosts.
    std::map<std::string, Report> All() const;

  private:
    mutable std::mutex reportsMutex_;
    std::map<std::string, Report> reports_;
};

}  // namespace zot::exporter
