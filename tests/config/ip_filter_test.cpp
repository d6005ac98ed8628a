#include "config/ip_filter.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

namespace zot {
namespace {

TEST(IpFilter, ListOfAddressesAndRanges) {
    struct {
        const char* address;
        const char* list;
        int result;
        const char* error;
    } cases[] = {
        {"10.0.0.1", "", 0, ""},
        {"127.0.0.1", "127.0.0.1", 1, ""},
        {"127.0.0.2", "127.0.0.1", 0, ""},
        {"10.0.0.5", "10.0.0.1-10.0.0.20,127.0.0.1", 1, ""},
        {"127.0.0.1", "10.0.0.1-10.0.0.20,127.0.0.1", 1, ""},
        {"10.0.0.20", "10.0.0.20-10.0.0.1", 1, ""},
        {"10.0.0.21", "10.0.0.20-10.0.0.1", 0, ""},
        {"200.0.0.1", "100.0.0.1-250.0.0.1", 1, ""},
        {"10.0.0.1", "10.1", 1, ""},
        {"10.0.0.1", "abc,10.0.0.1", 1, "Illegal character (a) specified"},
        {"10.0.0.1", "127.0.0.1, 10.0.0.1", 1, "Illegal character ( ) specified"},
        {"10.0.0.1", "1 0 . 0.0\n.1", 1, "Illegal character ( ) specified"},
        {"10.0.0.1", "0.0.0.0,10.0.0.1", 0, ""},
        {"10.0.0.1", "10.0.0.300,10.0.0.1", 0, "Invalid IP address (10.0.0.300) specified"},
        {"10.0.0.1", "x10.0.0.300", 0, "Invalid IP address (10.0.0.300) specified"},
        {"255.255.255.255", "255.255.255.255", 0, "Invalid IP address (255.255.255.255) specified"},
        {"10.0.0.9", "10.0.0.1-10.0.0.999,10.0.0.9", 1,
         "Invalid IP address (10.0.0.999) specified"},
        {"10.0.0.9", "10.0.0.1-,10.0.0.9", 1, "Invalid IP address () specified"},
        {"10.0.0.1", "10.0.0.1-", 1, ""},
        {"10.0.0.9", "10.0.0.1-10.0.0.3-10.0.0.9", 1, ""},
        {"10.0.0.5", "10.0.0.1-10.0.0.3-10.0.0.9", 0, ""},
    };
    for (const auto& c : cases) {
        VyString error = "stale";
        EXPECT_EQ(IpInList(inet_addr(c.address), c.list, error), c.result) << c.list;
        EXPECT_EQ(error, c.error) << c.list;
    }
}

TEST(IpFilter, ConnectionFilterSearchesText) {
    AgentSettings settings;
    settings.activeFilter = "\r\n10.0.0.15\r\nhost 192.168.1.7!\r\n";
    EXPECT_TRUE(ConnectionPermitted(settings, "8.8.8.8"));  // off
    settings.filterActive = 1;
    EXPECT_TRUE(ConnectionPermitted(settings, "10.0.0.15"));
    EXPECT_TRUE(ConnectionPermitted(settings, "10.0.0.1"));
    EXPECT_TRUE(ConnectionPermitted(settings, "192.168.1.7"));
    EXPECT_FALSE(ConnectionPermitted(settings, "10.0.0.2"));
    settings.activeFilter = "\r\n";
    EXPECT_FALSE(ConnectionPermitted(settings, "10.0.0.15"));
}

}  // namespace
}  // namespace zot
