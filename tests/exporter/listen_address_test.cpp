// Where the exporter listens, as the command line says it.
#include "exporter/listen_address.h"

#include <gtest/gtest.h>

#include <regex>
#include <string>

namespace zot::exporter {
namespace {

TEST(ListenAddress, IsAHostWithAPort) {
    struct Case {
        const char* text;
        const char* bound;  // a pattern; "^$" when the text is refused
    } cases[] = {
        {"127.0.0.1:0", "^127\\.0\\.0\\.1:[1-9][0-9]*$"},
        {"localhost:0", "^(127\\.0\\.0\\.1|\\[::1\\]):[1-9][0-9]*$"},
        {":0", "^(0\\.0\\.0\\.0|\\[::\\]):[1-9][0-9]*$"},
        {"127.0.0.1", "^$"},
        {"", "^$"},
        {"::1:80", "^$"},
        {"[::1]", "^$"},
        {"127.0.0.1:65536", "^$"},
        {"127.0.0.1:", "^$"},
        {"127.0.0.1:-1", "^$"},
        {"[::1]80", "^$"},
    };
    for (const Case& one : cases) {
        std::string bound, error;
        UniqueFd fd = ListenAt(one.text, bound, error);
        EXPECT_EQ(bool(fd), one.bound != std::string("^$")) << one.text << error;
        EXPECT_EQ(error.empty(), bool(fd)) << one.text;
        EXPECT_TRUE(std::regex_match(bound, std::regex(one.bound))) << bound;
    }
    // A second one at the same place is told why it cannot be there.
    std::string bound, again, error;
    UniqueFd first = ListenAt("127.0.0.1:0", bound, error);
    EXPECT_FALSE(ListenAt(bound, again, error));
    EXPECT_EQ(error, "cannot listen at " + bound + ": Address already in use");
}

}  // namespace
}  // namespace zot::exporter
