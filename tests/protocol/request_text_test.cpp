#include "protocol/request_text.h"

#include <gtest/gtest.h>

namespace zot {
namespace {

TEST(RequestText, LinesArePositionalAndTrimmingCrossesBlankLines) {
    EXPECT_EQ(GetLine("a\n\n  b \nc\n", 2), "b");
    EXPECT_EQ(RawLine("a\n\n  b \nc\n", 2), "");
    EXPECT_EQ(RawLine("a\n\n  b \nc\n", 3), "  b ");
    EXPECT_EQ(GetLine("", 1), "");
    EXPECT_EQ(GetLine("a\n \r\n\t", 2), "");
    EXPECT_EQ(GetLine("a\nb", 3), "");
    EXPECT_EQ(GetLine("a\nb", 0), "");
    EXPECT_EQ(RawLine("a\nb\r", 2), "b\r");
    // Leading bytes from 0x80 up are skipped like blanks, trailing ones stay.
    EXPECT_EQ(GetLine("\xC3\xA4 a\xC3\xA4 \n", 1), "a\xC3\xA4");
}

TEST(RequestText, ValuesByName) {}

TEST(RequestText, LinesAreWalkedOnceWhateverBlankOnesStandBetween) {
    auto walk = [](std::string_view text) {
        std::string lines;
        for (std::string_view line; NextLine(text, line);) lines += std::string(line) + ";";
        return lines;
    };
    EXPECT_EQ(walk("a\n\n \n b \nc"), "a;b;");
    EXPECT_EQ(walk("\n\nb=1"), "b=1;");
    EXPECT_EQ(walk("a\n\n \n\r"), "a;");
    // Takes hours if every line is searched for from its own beginning.
    const std::string blank(4 << 20, '\n');
    EXPECT_EQ(walk(blank + "\r"), "");
    EXPECT_EQ(walk(blank + "a" + blank + "b\n\r"), "a;b;");
}

TEST(RequestText, PlainConversionsTakeLeadingDigits) {
    EXPECT_EQ(ToInt(" \t12abc"), 12);
    EXPECT_EQ(ToInt("-7"), -7);
    EXPECT_EQ(ToInt("x"), 0);
    EXPECT_EQ(ToInt("- 7"), 0);
    EXPECT_EQ(ToInt("99999999999"), 2147483647);
    EXPECT_EQ(ToInt64("-99999999999999999999"), -9223372036854775807LL - 1);
    EXPECT_EQ(ToInt64("9223372036854775807"), 9223372036854775807LL);
    EXPECT_DOUBLE_EQ(ToDouble("2.5x"), 2.5);
}

TEST(RequestText, CheckedConversionsTakeWholeNumbersOnly) {
    int32_t value = 5;
    for (const char* bad : {"", "+", "-", " 1", "1 ", "1.0", "0x1", "--1"}) {
        EXPECT_FALSE(ParseInt(bad, value)) << bad;
    }
    EXPECT_EQ(value, 5);
    EXPECT_TRUE(ParseInt("+12", value));
    EXPECT_EQ(value, 12);
    EXPECT_TRUE(ParseInt("-2147483648", value));
    EXPECT_EQ(value, -2147483647 - 1);
    int64_t wide = 0;
    EXPECT_TRUE(ParseInt64("99999999999999999999999", wide));
    EXPECT_EQ(wide, 9223372036854775807LL);
}

TEST(RequestText, FlagsAndDates) {
    EXPECT_TRUE(IsFlagSet(GetLine("1 \n", 1)));
    EXPECT_FALSE(IsFlagSet("01"));
    EXPECT_FALSE(IsFlagSet("true"));
    RequestDate date = ParseDate("05032019070809");
    EXPECT_EQ(date.day, 5);
    EXPECT_EQ(date.month, 3);
    EXPECT_EQ(date.year, 2019);
    EXPECT_EQ(date.second, 9);
    EXPECT_EQ(ParseDate("0503201907080").day, 0);
}

TEST(RequestText, EscapingOfLineBreaks) {
    EXPECT_EQ(Escape("a\r\nb"), "a%0D%0Ab");
    EXPECT_EQ(Unescape("x%0a%0A"), "x%0a\n");
    EXPECT_EQ(Unescape("%0D%0%0A%0"), "\r%0\n%0");
    EXPECT_EQ(Unescape("%"), "%");
}

}  // namespace
}  // namespace zot
