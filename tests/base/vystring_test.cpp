#include "base/vystring.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "base/vystring_list.h"

namespace zot {
namespace {

TEST(VyString, CapacityGrowsInStepsWithASpareByte) {
    VyString text;
    EXPECT_EQ(text.Capacity(), 0u);
    EXPECT_EQ(text.Data(), nullptr);
    text = std::string(100, 'a');
    EXPECT_EQ(text.Capacity(), 128u);
    text = std::string(128, 'a');
    EXPECT_EQ(text.Capacity(), 128u);  // it fits exactly
    EXPECT_EQ(VyString(std::string(128, 'a')).Capacity(), 256u);
    EXPECT_EQ(std::string(text.Terminate()), std::string(128, 'a'));
    EXPECT_EQ(text.Capacity(), 384u);
    text.SetCapacity(0);
    EXPECT_EQ(text.Data(), nullptr);
    EXPECT_EQ(text.Length(), 0);
}

TEST(VyString, NewBytesAreZero) {
    VyString text(std::string(100, 'x'));
    text.SetCapacity(1000);
    for (uint32_t i = 100; i < text.Capacity(); ++i) ASSERT_EQ(text.Data()[i], '\0') << i;
    text.Cut(3);
    EXPECT_STREQ(text.Terminate(), "xxx");
    for (uint32_t i = 3; i < text.Capacity(); ++i) ASSERT_EQ(text.Data()[i], '\0') << i;
}

TEST(VyString, FixedCapacityCuts) {
    VyString fixed = VyString::Fixed(10);
    fixed.Append("0123456789abcde");
    EXPECT_EQ(fixed, "0123456789");
    EXPECT_EQ(fixed.Capacity(), 10u);
    fixed = VyString("a text that is too long");
    EXPECT_EQ(fixed, "a text tha");
    VyString copy(fixed);
    copy.Append('!');
    EXPECT_EQ(copy, "a text tha");
    fixed.SetCapacity(0);
}

TEST(VyString, MovesAndTakesPartsOfItself) {
    VyString text("one two");
    VyString moved = std::move(text);
    EXPECT_EQ(moved, "one two");
    moved.Append(moved.View());
    moved.Append(moved.CopyView(1, 4));
    EXPECT_EQ(moved, "one twoone twoone ");
    for (int i = 0; i < 6; ++i) moved.Append(moved.View());
    EXPECT_EQ(moved.Length(), 18 * 64);
    EXPECT_EQ(moved.CopyView(18 * 63 + 1, 18), "one twoone twoone ");
    moved = moved.CopyView(5, 3);
    EXPECT_EQ(moved, "two");
}

TEST(VyString, PositionsCountFromOneAndForgiveTheirRange) {
    VyString text("hello");
    EXPECT_EQ(text.Pos("l"), 3);
    EXPECT_EQ(text.Pos(""), 0);
    EXPECT_EQ(VyString().Pos("x"), 0);
    EXPECT_EQ(text.CopyView(4, 10), "lo");
    EXPECT_EQ(text.CopyView(0, 2), "");
    EXPECT_EQ(text.CopyView(6, 1), "");
    text.Set(9, 'x');
    text.Set(1, 'H');
    EXPECT_EQ(text, "Hello");
    EXPECT_EQ(text.At(0), '\0');
    EXPECT_EQ(text.At(2), 'e');
}

TEST(VyString, TextOperations) {
    VyString blank(" \t \x01 ");
    blank.Trim();
    EXPECT_EQ(blank, "");
    VyString text("\r\n a \xC3\xA4\x01 ");
    text.Trim();
    EXPECT_EQ(text, "a \xC3\xA4");  // bytes above ASCII are no blanks
    VyString runs("a   b  c c");
    runs.CollapseRuns(' ');
    EXPECT_EQ(runs, "a b c c");
    VyString mixed("AbC\xC4[");
    mixed.LowerCase();
    EXPECT_EQ(mixed, "abc\xC4[");
    EXPECT_EQ(VyString("aXbxc").ReplaceAll("x", "--", false), "a--b--c");
    EXPECT_EQ(VyString("aXbxc").ReplaceAll("x", "--", true), "aXb--c");
    EXPECT_EQ(VyString("abc").ReplaceAll("", "-", true), "abc");
    EXPECT_EQ(FieldOf("a\r\nb", 2, '\n'), "b");
    EXPECT_EQ(FieldOf("a\r\nb", 1, '\n'), "a\r");
    EXPECT_EQ(FieldOf("a\r\nb", 3, '\n'), "");
    EXPECT_EQ(FieldOf("a\r\nb", 0, '\n'), "");
    char buffer[4];
    VyString("abcdef").CopyToBuffer(buffer, sizeof buffer);
    EXPECT_STREQ(buffer, "abc");
}

TEST(VyString, FindsInBuffers) {
    EXPECT_EQ(FindInBuffer("abcabc", "bc"), 2);
    EXPECT_EQ(FindInBuffer("abcabc", "bc", 3), 5);
    EXPECT_EQ(FindInBuffer("abc", "bc", 9), 0);
    EXPECT_EQ(FindInBufferNoCase("xABC", "bc"), 3);
    EXPECT_EQ(FindInBufferNoCase("xABC", ""), 0);
    EXPECT_EQ(FindInBufferNoCase("ab", "abc"), 0);
    EXPECT_EQ(FindInBuffer(std::string_view("a\0b\0", 4), std::string_view("\0", 1), 3), 4);
}

TEST(VyStringList, KeepsShortAndLongItems) {
    VyStringList list;
    for (int i = 0; i < 300; ++i) list.Add(std::to_string(i));
    list.Add('c');
    list.Add("");
    EXPECT_EQ(list.Count(), 302);
    EXPECT_EQ(list[7], "7");
    EXPECT_EQ(list[299], "299");
    EXPECT_EQ(list[300], "c");
    EXPECT_EQ(list[301], "");
    VyStringList copy = list;
    list.Clear();
    EXPECT_EQ(list.Count(), 0);
    EXPECT_EQ(copy[299], "299");
}

TEST(VyStringListDeathTest, IndexOutOfRangeStopsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    VyStringList list;
    EXPECT_DEATH(list[0], R"(vystring.*operator\[\]|operator\[\].*vystring)");
    list.Add("a");
    EXPECT_DEATH(list[-1], R"(operator\[\])");
}

}  // namespace
}  // namespace zot
