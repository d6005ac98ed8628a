#include "exporter/site.h"

#include <algorithm>
#include <iterator>
#include <memory>
#include <nlohmann/json.hpp>
#include <string_view>
#include <utility>

#include "exporter/fleet_page.h"
#include "exporter/html.h"
#include "exporter/probe_run.h"
#include "exporter/probe_url.h"

namespace zot::exporter {
namespace {

constexpr const char* kMetricsType = "text/plain; version=0.0.4; charset=utf-8";

HttpReply Refusal(unsigned status, std::string text) { return {status, std::move(text) + "\n"}; }

}  // namespace

const Site::Route Site::kRoutes[] = {
    {"/", false, &Site::FleetPage},      {"/host", false, &Site::HostPage},
    {"/style.css", false, &Site::Style}, {"/probe", false, &Site::Probe},
    {"/metrics", false, &Site::Metrics}, {"/targets", false, &Site::Targets},
    {"/config", false, &Site::Config},   {"/-/healthy", false, &Site::Healthy},
    {"/-/reload", true, &Site::Reload},
};

void Site::Serve(const HttpRequest& request, const Answerer& answer) {
    auto counted = [this, answer](HttpReply reply) {
        parts_.metrics.HttpReplied(reply.status);
        answer(std::move(reply));
    };
    const auto* route = std::find_if(std::begin(kRoutes), std::end(kRoutes),
                                     [&](const Route& row) { return request.path == row.path; });
    if (route == std::end(kRoutes)) return counted(Refusal(404, "there is nothing here"));
    const bool changes = request.method == "POST" || request.method == "PUT";
    const bool reads = request.method == "GET" || request.method == "HEAD";
    if (route->changes ? !changes : !reads) {
        HttpReply reply = Refusal(405, "not this way");
        reply.headers = {{"Allow", route->changes ? "POST, PUT" : "GET, HEAD"}};
        return counted(std::move(reply));
    }
    (this->*route->action)(request, counted);
}

void Site::Probe(const HttpRequest& request, const Answerer& answer) {
    ProbePlan plan;
    ProbeOrder order;
    std::string error;
    plan.fleet = parts_.fleets.Current().fleet;
    if (!ReadProbeQuery(request.query, *plan.fleet, order, error)) {
        return answer(Refusal(400, error));
    }
    plan.host = order.host;
    plan.checks = std::move(order.checks);
    plan.deadline = client::Deadline::Clock::now() + ProbeTimeout(request.scrapeTimeout);
    parts_.metrics.ProbeBegan();
    auto take = [this, answer, inWords = order.inWords](ProbeReport report) {
        parts_.metrics.ProbeEnded(report.failure, report.seconds);
        LastProbes::Report kept = parts_.probes.Put(std::move(report));
        if (inWords) return answer({200, InWords(*kept)});
        answer({200, kept->metrics, kMetricsType});
    };
    parts_.engine.Post([this, plan = std::move(plan), take = std::move(take)] {
        StartProbe(parts_.engine, parts_.logs, plan, take);
    });
}

void Site::Metrics(const HttpRequest&, const Answerer& answer) {
    answer({200, parts_.metrics.Text(parts_.fleets.Current(), parts_.openConnections()),
            kMetricsType});
}

void Site::Targets(const HttpRequest&, const Answerer& answer) {
    answer({200, TargetsAsJson(parts_.fleets.Current().fleet->inventory), "application/json"});
}

void Site::Config(const HttpRequest&, const Answerer& answer) {
    answer({200, ConfigAsYaml(parts_.fleets.Current().fleet->config)});
}

void Site::Healthy(const HttpRequest&, const Answerer& answer) { answer({200, "healthy\n"}); }

void Site::Reload(const HttpRequest&, const Answerer& answer) {
    parts_.files.Do([this, answer] {
        std::vector<std::string> mistakes;
        if (parts_.reload(mistakes)) return answer({200, "reloaded\n"});
        std::string text = "not reloaded, the old configuration stays in force:\n";
        for (const std::string& mistake : mistakes) text += mistake + "\n";
        answer({500, text});
    });
}

void Site::FleetPage(const HttpRequest& request, const Answerer& answer) {
    answer(HtmlReply(FleetAsHtml(*parts_.fleets.Current().fleet, parts_.probes.All(),
                                 ReadFleetQuery(request.query), time(nullptr))));
}

void Site::HostPage(const HttpRequest& request, const Answerer& answer) {
    auto fleet = parts_.fleets.Current().fleet;
    std::string name;
    for (const auto& [key, value] : request.query) {
        if (key == "name") name = value;
    }
    const client::Host* host = fleet->inventory.Find(name);
    if (!host) return answer(Refusal(404, "there is no such host in the inventory"));
    answer(
        HtmlReply(HostAsHtml(*host, fleet->config, parts_.probes.Of(name).get(), time(nullptr))));
}

void Site::Style(const HttpRequest&, const Answerer& answer) {
    answer({200,
            std::string(kStyleSheet),
            "text/css; charset=utf-8",
            {{"Cache-Control", "max-age=3600"}}});
}

std::string TargetsAsJson(const client::Inventory& inventory) {
    nlohmann::json list = nlohmann::json::array();
    for (const client::Host& host : inventory.Hosts()) {
        nlohmann::json labels = nlohmann::json::object();
        if (!host.groups.empty()) {
            // Between commas, so that a pattern finds one of several.
            std::string all = ",";
            for (const std::string& group : host.groups) all += group + ",";
            labels = {{"__meta_zot_group", host.groups[0]}, {"__meta_zot_groups", all}};
        }
        list.push_back({{"targets", {host.name}}, {"labels", labels}});
    }
    return list.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

}  // namespace zot::exporter
