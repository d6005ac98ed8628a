#include "client/range.h"

#include <gtest/gtest.h>

#include "client/text.h"

namespace zot::client {
namespace {

TEST(Range, AlertsAndFormats) {
    struct Case {
        const char* text;
        std::vector<double> good;
        std::vector<double> bad;
        const char* inSixtieths;
    } cases[] = {
        {"10", {0, 10}, {-0.1, 10.1}, "600"},
        {":10", {0, 10}, {-1, 11}, "600"},
        {"10:", {10, 1e18}, {9.99, -1}, "600:"},
        {"~:10", {-1e9, 10}, {10.5}, "~:600"},
        {"10:20", {10, 20}, {9, 21}, "600:1200"},
        {"@10:20", {9, 21}, {10, 15, 20}, "@600:1200"},
        {"@~:0", {0.5}, {0, -5}, "@~:0"},
        {"-5:-1.5", {-5, -2}, {-1, 0}, "-300:-90"},
        {"0", {0}, {1, -1}, "0"},
        {"0:", {0, 7}, {-1}, "0:"},
        {"@:", {-1}, {0, 7}, "@0:"},
        {"0.001", {0.001}, {0.0011}, "0.06"},
    };
    for (const Case& c : cases) {
        auto range = Range::Parse(c.text);
        ASSERT_TRUE(range.has_value()) << c.text;
        for (double value : c.good) EXPECT_FALSE(range->Alerts(value)) << c.text << " " << value;
        for (double value : c.bad) EXPECT_TRUE(range->Alerts(value)) << c.text << " " << value;
        EXPECT_EQ(range->Format(60), c.inSixtieths);
    }
    for (const char* text : {"", "@", "a", "10%", "1e3", "20:10", "10:20:30", "~", "10:~", "1.2.3",
                             "-", "10 :20", "inf", "0x10"}) {
        EXPECT_FALSE(Range::Parse(text).has_value()) << text;
    }
}

TEST(Text, Numbers) {
    double value = 0;
    struct Case {
        const char* text;
        double value;
    };
    for (const Case& c : {Case{"load 1.5 of 4", 1.5}, Case{"12%", 12}, Case{"web1: -3.", -3},
                          Case{"a-1 v1.2 =7", 7}, Case{"x=.5", 0.5}}) {
        EXPECT_TRUE(FindDecimal(c.text, value)) << c.text;
        EXPECT_EQ(value, c.value) << c.text;
    }
    for (const char* text : {"", "web1", "none - at . all"}) EXPECT_FALSE(FindDecimal(text, value));
    EXPECT_EQ(FormatDecimal(9007199254740991), "9007199254740991");
    EXPECT_EQ(FormatDecimal(-0.001), "0");
    EXPECT_EQ(FormatDecimal(1.5), "1.5");
    EXPECT_EQ(FormatDecimal(100), "100");
    EXPECT_EQ(FormatBytes(1023), "1023 B");
    EXPECT_EQ(FormatBytes(-1536), "-1.5 KiB");
}

}  // namespace
}  // namespace zot::client
