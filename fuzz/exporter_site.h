// An exporter for fuzz targets, with all of its pages and two hosts. Their password files are
// missing, so that a probe runs to its end without a connection.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "exporter/site.h"
#include "fuzz/scratch.h"

namespace zot::fuzz {

struct ExporterSite {
    explicit ExporterSite(const client::Engine::Limits& limits) : engine(limits) {}

    static std::shared_ptr<const exporter::Fleet> Load(const std::string& config) {
        Scratch::Write("hosts",
                       "web1:1 addr=127.0.0.1 password=none groups=a,b\n"
                       "web2:1 addr=127.0.0.1 password=none\n");
        Scratch::Write(config,
                       "hosts: hosts\nmodules:\n"
                       "  base: {checks: [{name: agent, type: info}, {name: root, type: disk, "
                       "path: /}]}\n  more: {checks: [{name: x, type: file, path: \"<i>\"}]}\n");
        std::vector<std::string> mistakes;
        auto fleet = exporter::LoadFleet(config, mistakes);
        Require(fleet != nullptr);
        return fleet;
    }

    Scratch scratch;
    exporter::FleetHolder fleets{scratch / "e.yml", Load(scratch / "e.yml")};
    exporter::LastProbes probes;
    exporter::OwnMetrics metrics;
    client::Engine engine;
    exporter::Worker files;
    exporter::LogCounter logs{engine, files};
    exporter::Site site{
        {fleets, engine, logs, files, probes, metrics, [] { return 1U; },
         [this](std::vector<std::string>& mistakes) { return fleets.Reload(true, mistakes); }}};
};

}  // namespace zot::fuzz
