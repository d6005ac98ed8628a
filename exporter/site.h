// What is at which path.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "client/engine.h"
#include "exporter/fleet.h"
#include "exporter/http_exchange.h"
#include "exporter/last_probes.h"
#include "exporter/log_counter.h"
#include "exporter/own_metrics.h"
#include "exporter/worker.h"

namespace zot::exporter {

class Site {
  public:
    // All of it must outlive the site.
    struct Parts {
        FleetHolder& fleets;
        client::Engine& engine;  // runs on a thread of its own
        LogCounter& logs;        // on that thread
        Worker& files;
        LastProbes& probes;
        OwnMetrics& metrics;
        std::function<unsigned()> openConnections;
        // Reads the configuration again, on the thread of `files`. False with the mistakes.
        std::function<bool(std::vector<std::string>& mistakes)> reload;
    };

    explicit Site(Parts parts) : parts_(std::move(parts)) {}
    // Answers one request. May be called from any thread.
    void Serve(const HttpRequest& request, const Answerer& answer);

  private:
    using Action = void (Site::*)(const HttpRequest& request, const Answerer& answer);
    struct Route {
        const char* path;
        bool changes;  // asked by POST or PUT, not GET
        Action action;
    };
    static const Route kRoutes[];

    void Probe(const HttpRequest& request, const Answerer& answer);
    void Metrics(const HttpRequest& request, const Answerer& answer);
    void Targets(const HttpRequest& request, const Answerer& answer);
    void Config(const HttpRequest& request, const Answerer& answer);
    void Healthy(const HttpRequest& request, const Answerer& answer);
    void Reload(const HttpRequest& request, const Answerer& answer);
    void FleetPage(const HttpRequest& request, const Answerer& answer);
    void HostPage(const HttpRequest& request, const Answerer& answer);
    void Style(const HttpRequest& request, const Answerer& answer);

    Parts parts_;
};

// The hosts in the form of Prometheus' HTTP service discovery.
std::string TargetsAsJson(const client::Inventory& inventory);

}  // namespace zot::exporter
