#include "expr/number.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <random>
#include <string>

namespace zot {
namespace {

TEST(ParseNumber, ReadsWholeDecimalBinaryAndUnits) {
    struct {
        std::string text;
        double value;
    } cases[] = {
        {"0", 0},
        {"-12", -12},
        {"+7.5", 7.5},
        {"5.", 5},
        {"-.5", -0.5},
        {"'42'", 42},
        {"\"42\"", 42},
        {"-.", 0},  // one character after the sign is enough
        {"101B", 5},
        {"'0B'", 0},
        {"10 kb", 10240},
        {"10\t KB", 10240},
        {"10 kb ", 10240},
        {"2 mbit/s", 262144},
        {"50 %", 50},
        {"1.5 kV", 1500},
        {"1 TB/SEC", 1099511627776},
        {std::string(400, '9'), INFINITY},
        {std::string(400, '0') + "1", 1},
    };
    for (const auto& c : cases) {
        double value = -1;
        EXPECT_EQ(ParseNumber(c.text, value), 1) << c.text;
        EXPECT_EQ(value, c.value) << c.text;
    }
    for (std::string_view text :
         {"",      "''",  "abc", ".5",    " 5",           "5 ",  "+",      "-",
          "1.2.3", "1e5", "5kb", "10 xb", "10 kbitsssss", "1 2", "1 kb x", "101B kb",
          "B",     "+1B", "12B", "'5\"",  "''5''",        "5\n", "0x10",   "- 5"}) {
        double value = -1;
        EXPECT_EQ(ParseNumber(text, value), 0) << text;
        EXPECT_EQ(value, -1) << text;
    }
}

TEST(ParseNumber, GivesTheNearestDouble) {
    std::mt19937 random(2);
    for (int i = 0; i < 20000; ++i) {
        std::string text = random() % 2 ? "-0" : "7";
        auto addDigits = [&](size_t count) {
            for (; count > 0; --count) {
                text += static_cast<char>('0' + (random() % 3 ? random() % 10 : 0));
            }
        };
        size_t longest = i % 10 == 0 ? 600 : 14;
        addDigits(random() % longest);
        text += '.';
        addDigits(random() % longest);
        double value = 0;
        ASSERT_EQ(ParseNumber(text, value), 1) << text;
        ASSERT_EQ(value, std::strtod(text.c_str(), nullptr)) << text;
    }
    // A midpoint between two doubles: one digit a thousand places later decides.
    std::string half = "9007199254740993." + std::string(1000, '0');
    double value = 0;
    ASSERT_EQ(ParseNumber(half, value), 1);
    EXPECT_EQ(value, 9007199254740992.0);
    ASSERT_EQ(ParseNumber(half + "1", value), 1);
    EXPECT_EQ(value, 9007199254740994.0);
}

}  // namespace
}  // namespace zot
