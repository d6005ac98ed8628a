// What a URL may choose, and that numbers and labels read back as they were.
#include "exporter/probe_url.h"

#include <gtest/gtest.h>

#include <cmath>
#include <sstream>

#include "exporter/metric_text.h"

namespace zot::exporter {
namespace {

TEST(ProbeUrl, ChoosesOnlyWhatIsKnown) {
    Fleet fleet;
    std::istringstream list("web1\nweb2\n");
    std::string error;
    fleet.inventory = *client::Inventory::Load("-", {}, list, error);
    const CheckType* disk = FindCheckType("disk");
    fleet.config.modules = {{"a", {}, {{"x", disk, {"/"}}, {"y", disk, {"/y"}}}},
                            {"b", {}, {{"y", disk, {"/y"}}, {"z", disk, {"/z"}}}}};
    struct Case {
        Pairs query;
        std::string found;  // the error, or the host and the checks
    } cases[] = {
        {{{"target", "web2"}, {"module", "b,a"}}, "web2 y z x"},
        {{{"debug", "true"}, {"module", "a"}, {"target", "web1"}}, "web1 x y in words"},
        {{{"target", "web1"}}, "the URL needs target=HOST and module=NAME"},
        {{{"module", "a"}}, "the URL needs target=HOST and module=NAME"},
        {{{"target", "web3"}, {"module", "a"}}, "there is no host 'web3' in the inventory"},
        {{{"target", "127.0.0.1"}, {"module", "a"}},
         "there is no host '127.0.0.1' in the inventory"},
        {{{"target", "WEB1\n"}, {"module", "a"}}, "there is no host 'WEB1\\x0A' in the inventory"},
        {{{"target", std::string("web1\0", 5)}, {"module", "a"}},
         "there is no host 'web1\\x00' in the inventory"},
        {{{"target", "web1"}, {"module", "a,"}}, "there is no module '' in the configuration"},
        {{{"target", "web1"}, {"module", "A"}}, "there is no module 'A' in the configuration"},
        {{{"target", "web1"}, {"module", "a"}, {"target", "web1"}}, "target is in the URL twice"},
        {{{"target", "web1"}, {"module", "a"}, {"debug", "1"}}, "debug must be true or false"},
        {{{"target", "web1"}, {"module", "a"}, {"path", "/etc"}}, "path is no parameter"},
    };
    for (const Case& one : cases) {
        ProbeOrder order;
        std::string found;
        if (ReadProbeQuery(one.query, fleet, order, found)) {
            found = order.host->name;
            for (const PlannedCheck& planned : order.checks) found += " " + planned.check->name;
            if (order.inWords) found += " in words";
        }
        EXPECT_EQ(found, one.found);
    }
}

TEST(ProbeUrl, EndsBeforeTheScrapeDoes) {
    struct Case {
        const char* header;
        int milliseconds;
    } cases[] = {{"", 10000},    {"10", 9500},   {"2.5", 2000},     {"0.8", 400}, {"0.5", 250},
                 {"0.0001", 1},  {"0", 10000},   {"-3", 10000},     {"x", 10000}, {"1e3", 10000},
                 {"nan", 10000}, {"inf", 10000}, {"1000000", 10000}};
    for (const Case& one : cases) {
        EXPECT_EQ(ProbeTimeout(one.header).count(), one.milliseconds) << one.header;
    }
}

TEST(MetricText, NumbersAndLabelsReadBackExactly) {
    for (double value : {0.1, 1.0 / 3, 270553174016.0, 9007199254740993.0, 5e-324, -0.0, 1e300}) {
        EXPECT_EQ(strtod(MetricNumber(value).c_str(), nullptr), value);
    }
    EXPECT_EQ(MetricNumber(HUGE_VAL) + MetricNumber(-HUGE_VAL) + MetricNumber(NAN), "+Inf-InfNaN");
    const MetricFamily one = {"one", "gauge", "First."}, two = {"two_total", "counter", "Second."};
    const Label odd[] = {{"a", "say \"x\\y\"\nz"}, {"b", "\xFFtail"}};
    MetricText text;
    text.Add(one, 1);
    text.Add(two, 17);
    text.Add(one, odd, 2.5);
    EXPECT_EQ(text.Text(),
              "# HELP one First.\n# TYPE one gauge\none 1\n"
              "one{a=\"say \\\"x\\\\y\\\"\\nz\",b=\"\xEF\xBF\xBDtail\"} 2.5\n"
              "# HELP two_total Second.\n# TYPE two_total counter\ntwo_total 17\n");
}

}  // namespace
}  // namespace zot::exporter
