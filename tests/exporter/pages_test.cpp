// The pages: what agents and readers write stays text, and rows are filtered and sorted.
#include "tests/docs/pages.h"

#include <gtest/gtest.h>

#include <sstream>

#include "exporter/fleet_page.h"
#include "exporter/html.h"

namespace zot::exporter {
namespace {

TEST(Pages, TextStaysText) {
    EXPECT_EQ(Html("<b a='x' c=\"y\">&\x1B\xFF"),
              "&lt;b a=&#39;x&#39; c=&quot;y&quot;&gt;&amp;\\x1B\xEF\xBF\xBD");
    EXPECT_EQ(UrlValue("a&b=\"/é"), "a%26b%3D%22%2F%C3%A9");
    Fleet fleet;
    std::istringstream list("web1<i>\n");
    std::string error;
    fleet.inventory = *client::Inventory::Load("-", {}, list, error);
    ProbeReport report;
    report.host = fleet.inventory.Hosts()[0].name;
    report.failure = client::Failure::kAgentCode;
    report.checks = {{"x", client::Failure::kAgentCode, "<script>1</script>", 0}};
    report.version = report.system = report.metrics = "<script>2</script>";
    auto kept = std::make_shared<const ProbeReport>(report);
    const FleetQuery query = ReadFleetQuery({{"q", "\"><script>"}, {"sort", "<"}, {"state", "<"}});
    EXPECT_EQ(query.sort + query.state, "state");
    for (const std::string& page : {FleetAsHtml(fleet, {{report.host, kept}}, query, 0),
                                    FleetAsHtml(fleet, {{report.host, kept}}, {}, 0),
                                    HostAsHtml(fleet.inventory.Hosts()[0], {}, kept.get(), 0)}) {
        EXPECT_EQ(page.find("<script"), std::string::npos) << page;
        EXPECT_EQ(page.find("<i>"), std::string::npos) << page;
    }
}

TEST(Pages, WhatAProbeDoesNotAskIsAsItWasLast) {
    LastProbes probes;
    probes.Put({"web1", 1, 0.1, client::Failure::kNone, {}, "1.36", "Linux 6.1", ""});
    probes.Put({"web1", 2, 0.2, client::Failure::kTimeout, {}, "", "", ""});
    EXPECT_EQ(probes.Of("web1")->begun, 2);
    EXPECT_EQ(probes.Of("web1")->version + probes.Of("web1")->system, "1.36Linux 6.1");
}

TEST(Pages, FleetIsFilteredAndSorted) {
    Fleet fleet;
    std::istringstream list("good groups=shop\nbad\nnew groups=shop,lab\nslow\n");
    std::string error;
    fleet.inventory = *client::Inventory::Load("-", {}, list, error);
    std::map<std::string, LastProbes::Report> probes;
    auto put = [&](const char* host, time_t begun, double seconds, client::Failure failure,
                   const char* version) {
        ProbeReport report = {host, begun, seconds, failure, {}, version, "Linux 6.1", ""};
        if (failure != client::Failure::kNone) report.checks = {{"x", failure, "because", 0}};
        probes[host] = std::make_shared<const ProbeReport>(report);
    };
    put("good", 90, 0.1, client::Failure::kNone, "1.36");
    put("bad", 95, 0.2, client::Failure::kTimeout, "");
    put("slow", 40, 3, client::Failure::kNone, "1.35");
    auto names = [&](const Pairs& pairs) {
        const std::string page = FleetAsHtml(fleet, probes, ReadFleetQuery(pairs), 100);
        std::string found;
        for (const auto& match : test::Matches(page, "host\\?name=([a-z]+)"))
            found += match[1] + " ";
        return found;
    };
    EXPECT_EQ(names({}), "bad new good slow ");
    EXPECT_EQ(names({{"sort", "host"}}), "good bad new slow ");
    EXPECT_EQ(names({{"sort", "duration"}}), "slow bad good new ");
    EXPECT_EQ(names({{"sort", "age"}}), "slow good bad new ");
    EXPECT_EQ(names({{"sort", "version"}}), "bad new slow good ");
    EXPECT_EQ(names({{"state", "failed"}}), "bad ");
    EXPECT_EQ(names({{"q", "SHOP"}}), "new good ");
    EXPECT_EQ(names({{"q", "timeout: bec"}}), "bad ");
    EXPECT_EQ(names({{"q", "1.35"}, {"state", "failed"}}), "");
}

}  // namespace
}  // namespace zot::exporter
