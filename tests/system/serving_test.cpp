// The agent over real sockets: packets good and bad, time-outs, the filter, a crowd.

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "commands/agent_info.h"
#include "tests/support/agent_process.h"

namespace zot::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr char kKey[] = "a session key";

TEST(Serving, GetInfoIsComplete) {
    AgentProcess agent({.settings = "comment=hello\ntimeout=1500\ntcp=0\nexecuteaction=1\n"});
    client::Answer answer = agent.Ask("GetInfo");
    ASSERT_EQ(answer.code, "200");
    const std::vector<std::string> expected = {
        "AgentName=VY Remote Monitoring Agent",
        "AgentPlatform=FreeBSD",
        std::string("AgentVersion=") + kAgentVersion,
        "AgentDeveloper=The zot developers, https://zot.example.org",
        "Service=0",
        "Active=0",
        "ActiveConnections=1",
        "OpenedConnections=1",
        "FailedConnections=0",
        "Available tests=TCP%0D%0AUDP%0D%0AUNC%0D%0AFolder Size%0D%0ACount Files%0D%0A"
        "File Availability%0D%0AFile Integrity%0D%0AFile Compare%0D%0AText Log%0D%0AProcess%0D%0A"
        "CPU Usage%0D%0AExternal%0D%0AShell Script%0D%0A",
        "Enabled tests=0111111111111",
        "Port=" + std::to_string(agent.Port()),
        "Timeout=1500",
        "Comment=hello",
        "Available actions=Execute external command%0D%0ATCP/UDP send%0D%0ASyslog%0D%0A",
        "Enabled actions=100"};
    ASSERT_EQ(answer.lines.size(), expected.size() + 3);
    EXPECT_EQ(std::vector<std::string>(answer.lines.begin(), answer.lines.end() - 3), expected);
    EXPECT_TRUE(answer.lines[expected.size()].starts_with("HostName="));
    EXPECT_TRUE(answer.lines[expected.size() + 1].starts_with("RunningOS="));
    EXPECT_EQ(answer.lines.back(), "OSUpdates=not implemented");
}

TEST(Serving, InvalidPacketsAreAnsweredBySilence) {
    AgentProcess agent;
    const std::string& password = agent.Target().password;
    const client::RequestFields good = client::MakeRequest(password, kKey, "GetInfo\n\r");
    std::vector<client::RequestFields> bad(8, good);
    bad[0].signature[0] = 4;
    bad[1].signature[1] = 0x13;
    bad[2].digest[15] ^= 1;
    bad[3].digest.clear();
    bad[4].digestLength = 0xffff;
    bad[5].keyLength = 0xffff;
    bad[6].textLength = 0xffffffff;
    bad[7].packetLength = 0xffffffff;
    std::vector<std::string> packets = {std::string(14, '\0'), client::Serialise(good) + "more"};
    for (const auto& fields : bad) packets.push_back(client::Serialise(fields));
    for (size_t i = 0; i < packets.size(); ++i) {
        client::AgentConnection connection = agent.Connect();
        Send(connection, packets[i]);
        EXPECT_EQ(UntilClose(connection), "") << i;
    }
    EXPECT_EQ(agent.Ask("GetInfo").code, "200");
}

TEST(Serving, ASilentPeerIsDroppedAfterWholeSeconds) {
    AgentProcess agent({.settings = "timeout=1500\n"});
    auto start = steady_clock::now();
    client::AgentConnection connection = agent.Connect();
    Send(connection, "a");
    EXPECT_EQ(UntilClose(connection), "");
    auto waited = steady_clock::now() - start;
    // 1500 ms count as one second, which is over when the clock shows one more.
    EXPECT_GT(waited, milliseconds(990));
    EXPECT_LT(waited, milliseconds(2500));
}

TEST(Serving, TheFilterComparesText) {
    // An entry admits every address whose text it contains.
    AgentProcess agent({.settings = "filteractive=1\nfilterlist=127.0.0.15\nfiltermarks=1\n"});
    EXPECT_EQ(agent.Info("FailedConnections"), "0");
}

TEST(Serving, ACrowdLeavesAReserveOfDescriptors) {
    AgentProcess agent({.settings = "timeout=2000\n",
                        .prefix = {"/bin/sh", "-c", "ulimit -n 160; exec \"$@\"", "sh"}});
    std::vector<client::AgentConnection> crowd;
    for (int i = 0; i < 300; ++i) crowd.push_back(agent.Connect());
    // Those that wait in the backlog are served when the first have timed out.
    EXPECT_EQ(agent.Ask("GetInfo").code, "200");
    EXPECT_EQ(agent.Output().find("Accept fatal error"), std::string::npos);
}

}  // namespace
}  // namespace zot::test
