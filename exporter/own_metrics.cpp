#include "exporter/own_metrics.h"

#include <sys/resource.h>

#include <algorithm>
#include <cmath>
#include <ctime>

#include "client/text.h"
#include "commands/agent_info.h"
#include "exporter/metric_text.h"

namespace zot::exporter {
namespace {

constexpr MetricFamily kProbes = {"zot_exporter_probes_total", "counter", "Probes that ended."};
constexpr MetricFamily kFailed = {"zot_exporter_probe_failures_total", "counter",
                                  "Probes that failed, by the reason of the first failed check."};
constexpr MetricFamily kDuration = {"zot_exporter_probe_duration_seconds", "histogram",
                                    "How long probes took."};
constexpr MetricFamily kRunning = {"zot_exporter_running_probes", "gauge", "Probes under way."};
constexpr MetricFamily kConnections = {"zot_exporter_open_connections", "gauge",
                                       "HTTP connections that are open."};
constexpr MetricFamily kReplies = {"zot_exporter_http_replies_total", "counter",
                                   "HTTP replies, by the class of their status."};
constexpr MetricFamily kLogins = {"zot_exporter_refused_logins_total", "counter",
                                  "HTTP requests with a wrong user or password."};
constexpr MetricFamily kHosts = {"zot_exporter_hosts", "gauge", "Hosts of the inventory."};
constexpr MetricFamily kReload = {"zot_exporter_config_last_reload_successful", "gauge",
                                  "1 when the newest configuration is in force."};
constexpr MetricFamily kLoaded = {"zot_exporter_config_last_reload_success_timestamp_seconds",
                                  "gauge", "When the configuration in force was loaded."};
constexpr MetricFamily kBuild = {"zot_exporter_build_info", "gauge", "The exporter's version."};
constexpr MetricFamily kCpu = {"process_cpu_seconds_total", "counter",
                               "Processor time of the exporter."};
constexpr MetricFamily kStart = {"process_start_time_seconds", "gauge",
                                 "When the exporter was started, since 1970."};
constexpr MetricFamily kDescriptors = {"process_max_fds", "gauge",
                                       "How many descriptors the exporter may open."};

const time_t kStarted = time(nullptr);

double Seconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

void AddProcess(MetricText& metrics) {
    rusage usage = {};
    rlimit limit = {};
    if (getrusage(RUSAGE_SELF, &usage) == 0) {
        metrics.Add(kCpu, Seconds(usage.ru_utime) + Seconds(usage.ru_stime));
    }
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        metrics.Add(kDescriptors, static_cast<double>(limit.rlim_cur));
    }
    metrics.Add(kStart, static_cast<double>(kStarted));
}

}  // namespace

void OwnMetrics::ProbeEnded(client::Failure failure, double seconds) {
    --running_;
    ++byFailure_[static_cast<size_t>(failure)];
    const auto* bound = std::lower_bound(kBounds.begin(), kBounds.end(), seconds);
    ++byDuration_[static_cast<size_t>(bound - kBounds.begin())];
    totalMicroseconds_ += static_cast<uint64_t>(std::llround(std::max(seconds, 0.0) * 1e6));
}

void OwnMetrics::HttpReplied(unsigned status) {
    ++byStatus_[std::min<size_t>(status / 100, kStatusClasses - 1)];
}

std::string OwnMetrics::Text(const FleetHolder::State& fleet, unsigned openConnections) const {
    MetricText metrics;
    auto number = [](uint64_t count) { return static_cast<double>(count); };
    uint64_t probes = 0;
    for (const auto& count : byDuration_) probes += count;
    metrics.Add(kProbes, number(probes));
    auto words = client::FailureWords();
    for (size_t i = 0; i < words.size(); ++i) {
        const Label reason[] = {{"reason", words[i]}};
        metrics.Add(kFailed, reason, number(byFailure_[i + 1]));
    }
    uint64_t upTo = 0;
    for (size_t i = 0; i < byDuration_.size(); ++i) {
        upTo += byDuration_[i];
        std::string bound = i < kBounds.size() ? MetricNumber(kBounds[i]) : "+Inf";
        const Label labels[] = {{"le", bound}};
        metrics.AddPart(kDuration, "_bucket", labels, number(upTo));
    }
    metrics.AddPart(kDuration, "_sum", {}, number(totalMicroseconds_) / 1e6);
    metrics.AddPart(kDuration, "_count", {}, number(upTo));
    metrics.Add(kRunning, static_cast<double>(running_));
    metrics.Add(kConnections, openConnections);
    for (size_t i = 1; i < byStatus_.size(); ++i) {
        std::string code = std::to_string(i) + "xx";
        const Label labels[] = {{"code", code}};
        metrics.Add(kReplies, labels, number(byStatus_[i]));
    }
    metrics.Add(kLogins, number(refusedLogins_));
    metrics.Add(kHosts, number(fleet.fleet->inventory.Hosts().size()));
    metrics.Add(kReload, fleet.lastReloadGood ? 1 : 0);
    metrics.Add(kLoaded, static_cast<double>(fleet.loaded));
    const Label version[] = {{"version", kAgentVersion}};
    metrics.Add(kBuild, version, 1);
    AddProcess(metrics);
    return metrics.Text();
}

}  // namespace zot::exporter
