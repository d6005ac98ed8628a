#include "checks/scripts/command_line.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace zot {
namespace {

using Arguments = std::vector<std::string>;

Arguments Split(const std::string& line) {
    CommandLine command(line);
    return {command.Arguments(), command.Arguments() + command.Count()};
}

TEST(CommandLine, BlanksAndQuotes) {
    EXPECT_EQ(Split(""), Arguments());
    EXPECT_EQ(Split("  a  b\tc "), (Arguments{"a", "b", "c"}));
    EXPECT_EQ(Split("p 'a b' \"c 'd\""), (Arguments{"p", "a b", "c 'd"}));
    EXPECT_EQ(Split("p 'a'b '' 'open end "), (Arguments{"p", "a", "b", "", "open end "}));
    // A quote counts only at the start of an argument, and nothing else is special.
    EXPECT_EQ(Split("x=\"a b\" $HOME * >f \\n"),
              (Arguments{"x=\"a", "b\"", "$HOME", "*", ">f", "\\n"}));
}

TEST(CommandLine, Limits) {
    std::string many;
    for (int i = 1; i <= 25; ++i) many += std::to_string(i) + " ";
    Arguments split = Split(many);
    ASSERT_EQ(split.size(), 23U);
    EXPECT_EQ(split.back(), "23");

    EXPECT_EQ(Split(std::string(1023, 'x')).size(), 1U);
    EXPECT_EQ(Split(std::string(1024, 'x')).size(), 0U);
    // 1,000 + 1 and 22 + 1 bytes fill the area; an argument that does not fit ends the splitting.
    std::string first(1000, 'x');
    EXPECT_EQ(Split(first + " " + std::string(22, 'y')).size(), 2U);
    EXPECT_EQ(Split(first + " " + std::string(23, 'y') + " z"), Arguments{first});
}

}  // namespace
}  // namespace zot
