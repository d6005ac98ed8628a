// The dashboard as Grafana takes it: what its schema wants, which only shows in a browser
// otherwise.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <set>

#include "tests/docs/pages.h"
#include "tests/support/temp_dir.h"

namespace zot::exporter {
namespace {

using nlohmann::json;

TEST(Dashboard, HasWhatItsSchemaWants) {
    const json board = json::parse(test::ReadFile(ZOT_SOURCE_DIR "/packaging/grafana/fleet.json"));
    EXPECT_EQ(board["uid"], "zot-fleet");  // links to it stay
    EXPECT_GE(board["schemaVersion"].get<int>(), 30);
    std::set<std::string> variables = {"__rate_interval"};
    for (const json& variable : board["templating"]["list"]) variables.insert(variable["name"]);
    EXPECT_EQ(board["templating"]["list"][0]["type"], "datasource");
    const json source = {{"type", "prometheus"}, {"uid", "${datasource}"}};
    std::set<int> ids;
    std::set<std::pair<int, int>> taken;
    for (const json& panel : board["panels"]) {
        const std::string title = panel["title"];
        EXPECT_TRUE(ids.insert(panel["id"].get<int>()).second) << title;
        EXPECT_EQ(panel["datasource"], source) << title;
        const json& place = panel["gridPos"];
        const int left = place["x"], top = place["y"], width = place["w"], height = place["h"];
        EXPECT_LE(left + width, 24) << title;
        for (int i = 0; i < width * height; ++i) {
            EXPECT_TRUE(taken.emplace(left + i % width, top + i / width).second) << title;
        }
        std::set<std::string> targets;
        for (const json& target : panel["targets"]) {
            EXPECT_TRUE(targets.insert(target["refId"]).second) << title;
            EXPECT_EQ(target["datasource"], source) << title;
            for (const auto& match : test::Matches(target["expr"], "\\$([a-z_]+)")) {
                EXPECT_EQ(variables.count(match[1]), 1U) << title << match[1];
            }
        }
        EXPECT_FALSE(targets.empty()) << title;
    }
    EXPECT_GE(ids.size(), 10U);
}

}  // namespace
}  // namespace zot::exporter
