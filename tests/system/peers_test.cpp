// What strangers and peers without permission can get from a running agent: no more than is theirs.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "base/escaping.h"
#include "tests/support/agent_process.h"
#include "tests/support/decrypt.h"
#include "tests/support/file_tree.h"
#include "tests/support/loopback.h"

namespace zot::test {
namespace {

using client::Deadline;
using Lines = std::vector<std::string>;

constexpr char kKey[] = "a session key";

std::string Packet(const AgentProcess& agent, std::string_view command, const Lines& params = {}) {
    return client::BuildRequest(agent.Target().password, kKey,
                                client::ComposeRequest(command, params));
}

client::AgentConnection Begin(const AgentProcess& agent, std::string_view command,
                              const Lines& params) {
    client::AgentConnection connection = agent.Connect();
    std::string error;
    EXPECT_TRUE(connection.Send(Packet(agent, command, params), Deadline(kPatience), error))
        << error;
    return connection;
}

bool IsActive(const AgentProcess& agent, size_t sessions) {
    Lines lines = agent.Ask("GetInfo").lines;
    return std::find(lines.begin(), lines.end(), "ActiveConnections=" + std::to_string(sessions)) !=
           lines.end();
}

TEST(Peers, LongWorkEndsWhenNobodyWaitsForIt) {
    AgentProcess agent;
    MakeFile(agent.Dir() / "endless", int64_t{1} << 42);
    Loopback silent(SOCK_DGRAM);
    Loopback unaccepted(SOCK_STREAM, 4);
    const std::string forever = "2000000000";
    const struct {
        const char* command;
        Lines params;
    } requests[] = {
        {"TEST-FileHash", {agent.Dir() / "endless", "3"}},
        {"TEST-UDP", {"127.0.0.1", std::to_string(silent.Port()), "-1", forever, "x", "1"}},
        {"TEST-TCP", {"127.0.0.1", std::to_string(unaccepted.Port()), forever, "x", "1"}},
        {"TEST-ExternalPrg", {"sleep " + forever, "", "", "0"}},
        {"TEST-ShellScript", {"sh %script% ", "sleep " + forever, "", "0", "0"}},
    };
    std::vector<client::AgentConnection> connections;
    for (const auto& request : requests) {
        connections.push_back(Begin(agent, request.command, request.params));
    }
    ASSERT_TRUE(WaitUntil([&] { return IsActive(agent, std::size(requests) + 1); }));
    for (client::AgentConnection& connection : connections) {
        linger reset = {1, 0};
        setsockopt(connection.Fd(), SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
        connection.Close();
    }
    EXPECT_TRUE(WaitUntil([&] { return IsActive(agent, 1); }));
}

TEST(Peers, WhoHasOnlyEndedItsSendingStillGetsItsAnswer) {
    AgentProcess agent;
    MakeFile(agent.Dir() / "large", (int64_t{64} << 20) + 1);
    for (const auto& [command, params] :
         {std::pair("TEST-FileHash", Lines{agent.Dir() / "large", "0"}),
          std::pair("TEST-ExternalPrg", Lines{"sleep 6", "", "", "0"})}) {
        client::AgentConnection connection = Begin(agent, command, params);
        shutdown(connection.Fd(), SHUT_WR);
        std::string text;
        std::string error;
        EXPECT_TRUE(connection.ReceiveReply(kKey, Deadline(kPatience), text, error)) << error;
        EXPECT_EQ(text.substr(0, 4), "200\n") << command;
    }
}

// A check aimed at the agent itself carries a request into it, which then comes from 127.0.0.1.
TEST(Peers, TheAgentsOwnConnectionsMayNeitherManageNorUpgrade) {
    AgentProcess agent({.settings = "tcpudpaction=1\n"});
    const std::string port = std::to_string(agent.Port());
    for (const char* command : {"QUIT", "ReloadApp", "ReloadCfg", "GetSettings", "UpgradeCode"}) {
        const std::string packet = Packet(agent, command, {"500"});
        client::Answer answer = agent.Ask("TEST-TCP", {"127.0.0.1", port, "9000", packet, "8000"});
        ASSERT_EQ(answer.code, "200");
        // Length and ciphertext of the refusal, whatever bytes line breaks and escapes hide.
        std::string reply(Unescape(answer.lines[1]).View());
        ASSERT_GT(reply.size(), 4U);
        EXPECT_EQ(Decrypt(kKey, reply.substr(4)), "600\nOperation is not allowed\n\r") << command;
        // Closed as soon as it was sent, without waiting for an answer.
        agent.Ask("ACT-TCPUDPsend", {"127.0.0.1", port, "0", packet, "0"});
        agent.Ask("TEST-TCP", {"127.0.0.1", port, "9000", packet, "0"});
    }
    EXPECT_TRUE(WaitUntil([&] { return IsActive(agent, 1); }));
    Lines info = agent.Ask("GetInfo").lines;
    EXPECT_EQ(std::count(info.begin(), info.end(), "OpenedConnections=1"), 0) << "restarted";
    EXPECT_EQ(agent.Ask("ReloadCfg").code, "200") << "others keep their rights";
}

TEST(Peers, AFailedReloadNeitherOpensTheAgentNorSpoilsItsFile) {
    AgentProcess agent({.arguments = {"-d"}, .settings = "badlogfile=bad.txt\n"});
    const std::string good = ReadFile(agent.ConfigPath());
    agent.Dir().Write("zot.cfg", good + "zotpath=/none\n");
    EXPECT_EQ(agent.Ask("ReloadCfg").code, "300");
    client::Answer refused = agent.Ask("SetSettings", {"Comment=x"});
    EXPECT_EQ(refused.code, "300");
    ASSERT_EQ(refused.lines.size(), 1U);
    EXPECT_TRUE(refused.lines[0].ends_with("Invalid path to the agent!")) << refused.lines[0];
    EXPECT_EQ(ReadFile(agent.ConfigPath()), good + "zotpath=/none\n");

    std::filesystem::remove(agent.ConfigPath());
    agent.Signal(SIGHUP);
    auto logged = [&](const std::string& text) {  // by now in the default place
        return WaitUntil(
            [&] { return ReadFile(agent.Dir() / "log2.txt").find(text) != std::string::npos; });
    };
    EXPECT_TRUE(logged("Reload failed: Cannot open configuration file '"));
    client::Target open = agent.Target();
    open.password = "";
    client::Answer answer;
    ASSERT_TRUE(TryAsk(open, "QUIT", {}, &answer));
    EXPECT_EQ(answer.code + answer.lines[0], "600Operation is not allowed");
    EXPECT_TRUE(logged("\t 127.0.0.1\t Operation is not allowed: no password is set\n"));
    agent.Dir().Write("zot.cfg", good);
    ASSERT_TRUE(TryAsk(open, "ReloadCfg", {}, &answer));
    EXPECT_EQ(answer.code, "200");
    EXPECT_EQ(agent.Ask("SetSettings", {"Comment=x"}).code, "200");
}

// Settings that demand more of a request than the digest, which travels in clear.
TEST(Peers, ShortKeysAndRepeatedRequestsAreRefusedWhereThatIsAsked) {
    AgentProcess agent({.settings = "minrequestkey=13\nreplaywindow=3600\nbadlogfile=bad.txt\n"
                                    "auditlog=audit.txt\n"});
    auto answered = [&](const std::string& packet) {
        client::AgentConnection connection = agent.Connect();
        Send(connection, packet);
        return !UntilClose(connection).empty();
    };
    auto packet = [&](std::string_view key, const char* command) {
        return client::BuildRequest(agent.Target().password, key,
                                    client::ComposeRequest(command, {}));
    };
    EXPECT_TRUE(answered(packet(kKey, "GetInfo")));
    EXPECT_FALSE(answered(packet(kKey, "GetInfo")));
    EXPECT_TRUE(answered(packet(kKey, "Wrong\x01 word")));
    EXPECT_TRUE(answered(packet("another seal!", "GetInfo")));
    for (const char* key : {"", "twelve bytes"}) EXPECT_FALSE(answered(packet(key, "QUIT")));
    const std::string log = ReadFile(agent.Dir() / "bad.txt");
    EXPECT_NE(log.find("Request refused: seen before\n"), std::string::npos) << log;
    EXPECT_NE(log.find("Request refused: key of 12 bytes, minrequestkey is 13\n"),
              std::string::npos);

    for (int i = 0; i < 20; ++i) EXPECT_FALSE(answered(std::string(14, '\0')));
    const std::string audit = ReadFile(agent.Dir() / "audit.txt");
    for (const char* line :
         {"\t 127.0.0.1\t GetInfo 200 ", "\t 127.0.0.1\t Wrong\\x01\\x20word 500 "})
        EXPECT_NE(audit.find(line), std::string::npos) << audit;
    size_t strangers = 0;
    for (size_t at = 0; (at = audit.find("not authenticated\n", at)) != std::string::npos; ++at)
        ++strangers;
    EXPECT_EQ(strangers, 10U) << audit;
    EXPECT_EQ(audit.find(agent.Target().password), std::string::npos);
    // The rest of the minute is counted also when the agent ends.
    EXPECT_EQ(agent.Ask("QUIT").code, "200");
    EXPECT_EQ(agent.WaitForExit(), 0);
    EXPECT_EQ(Count(ReadFile(agent.Dir() / "audit.txt"), "authenticated, 13 more in a minute\n"),
              1U);
}

}  // namespace
}  // namespace zot::test
