// The agent over real sockets: packets good and bad, time-outs, the filter, crowds.

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <time.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/agent_process.h"
#include "tests/support/checkers.h"

namespace zot::test {
namespace {

using client::Deadline;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr char kKey[] = "a session key";

std::string GetInfoPacket(const AgentProcess& agent) {
    return client::BuildRequest(agent.Target().password, kKey, "GetInfo\n\r");
}

AgentOptions With(std::string settings) {
    AgentOptions options;
    options.settings = std::move(settings);
    return options;
}

// Everything the agent says on the connection until it closes it.
std::string UntilClose(client::AgentConnection& connection) {
    std::string bytes;
    std::string error;
    EXPECT_TRUE(connection.ReceiveUntilClose(Deadline(kPatience), bytes, error)) << error;
    return bytes;
}

void Send(client::AgentConnection& connection, std::string_view bytes) {
    std::string error;
    ASSERT_TRUE(connection.Send(bytes, Deadline(kPatience), error)) << error;
}

bool IsStillOpen(const client::AgentConnection& connection) {
    pollfd descriptor = {connection.Fd(), POLLIN, 0};
    return poll(&descriptor, 1, 0) == 0;
}

std::string Value(const client::Answer& answer, const std::string& name) {
    for (const std::string& line : answer.lines) {
        if (line.starts_with(name + "=")) return line.substr(name.size() + 1);
    }
    return "(none)";
}

// Crowds need more descriptors than a shell usually grants.
void RaiseOwnDescriptorLimit() {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

TEST(Serving, GetInfoIsComplete) {
    AgentProcess agent(With("comment=hello\ntimeout=1500\ntcp=0\nexecuteaction=1\n"));
    client::Answer answer = agent.Ask("GetInfo");
    ASSERT_EQ(answer.code, "200");
    const std::vector<std::string> expected = {
        "AgentName=VY Remote Monitoring Agent",
        "AgentPlatform=FreeBSD",
        "AgentVersion=1.36",
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

TEST(Serving, APacketMayComeInOneByteAtATime) {
    AgentProcess agent;
    client::AgentConnection connection = agent.Connect();
    for (char byte : GetInfoPacket(agent)) Send(connection, {&byte, 1});
    std::string text;
    std::string error;
    ASSERT_TRUE(connection.ReceiveReply(kKey, Deadline(kPatience), text, error)) << error;
    EXPECT_EQ(text.substr(0, 4), "200\n");
    EXPECT_EQ(text.substr(text.size() - 2), "\n\r");
    EXPECT_EQ(UntilClose(connection), "");
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

TEST(Serving, RepliesToRefusedRequests) {
    AgentProcess agent(With("manageaddr=192.0.2.1\n"));
    EXPECT_EQ(agent.Ask("QUIT").code, "600");
    EXPECT_EQ(agent.Ask("NoSuchCommand").lines,
              std::vector<std::string>{"Unknown command \"NoSuchCommand\""});
    client::Answer answer;
    std::string error;
    ASSERT_TRUE(client::Ask(agent.Target(), "\r", answer, error)) << error;
    EXPECT_EQ(answer.code, "500");
    ASSERT_TRUE(client::Ask(agent.Target(), "GetInfo\n", answer, error)) << error;
    EXPECT_EQ(answer.code, "502");
}

TEST(Serving, ASilentPeerIsDroppedAfterWholeSeconds) {
    AgentProcess agent(With("timeout=1500\n"));
    auto start = steady_clock::now();
    client::AgentConnection connection = agent.Connect();
    Send(connection, "a");
    EXPECT_EQ(UntilClose(connection), "");
    auto waited = steady_clock::now() - start;
    // 1500 ms count as one second, which is over when the clock shows one more.
    EXPECT_GT(waited, milliseconds(990));
    EXPECT_LT(waited, milliseconds(2500));
}

TEST(Serving, RefusedPeersGetNothingAndCostNothing) {
    AgentOptions options = With("filteractive=1\nfilterlist=10.0.0.1\nfiltermarks=1\n");
    options.prefix = {"/bin/sh", "-c", "ulimit -n 160; exec \"$@\"", "sh"};
    AgentProcess agent(options);
    // More than the agent may have descriptors: the oldest refused ones are closed.
    for (int i = 0; i < 500; ++i) {
        client::AgentConnection connection = agent.Connect();
        EXPECT_EQ(UntilClose(connection), "");
    }
    EXPECT_FALSE(agent.WaitForExit(milliseconds(0)).has_value());
    EXPECT_NE(agent.Output().find("\t 127.0.0.1\t TCP connection rejected\n"), std::string::npos);
}

TEST(Serving, TheFilterComparesText) {
    // An entry admits every address whose text it contains.
    AgentProcess agent(With("filteractive=1\nfilterlist=127.0.0.15\nfiltermarks=1\n"));
    EXPECT_EQ(Value(agent.Ask("GetInfo"), "FailedConnections"), "0");
}

TEST(Serving, IdleConnectionsCostNoTimeAndStopNobody) {
    RaiseOwnDescriptorLimit();
    // Below 1 means never; a 0 in the file would become the default.
    AgentProcess agent(With("timeout=-1\n"));
    std::vector<client::AgentConnection> idle;
    for (int i = 0; i < 1000; ++i) idle.push_back(agent.Connect());
    EXPECT_TRUE(
        WaitUntil([&] { return Value(agent.Ask("GetInfo"), "ActiveConnections") == "1001"; }));
    clockid_t clock;
    ASSERT_EQ(clock_getcpuclockid(agent.Pid(), &clock), 0);
    auto cpuTime = [clock] {
        timespec time{};
        clock_gettime(clock, &time);
        return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) / 1e6;
    };
    double before = cpuTime();
    std::this_thread::sleep_for(std::chrono::seconds(2));
    double used = cpuTime() - before;
    if (kMeasurable) {
        EXPECT_LT(used, 20.0) << "milliseconds of processor time in two seconds";
    }
    EXPECT_TRUE(std::all_of(idle.begin(), idle.end(), IsStillOpen));
    EXPECT_EQ(agent.Ask("GetInfo").code, "200");
}

TEST(Serving, ManyClientsAtOnce) {
    RaiseOwnDescriptorLimit();
    AgentProcess agent;
    constexpr int kClients = 300;
    std::atomic<int> answered{0};
    std::vector<std::thread> clients;
    for (int i = 0; i < kClients; ++i) {
        clients.emplace_back([&] {
            client::Answer answer;
            std::string error;
            std::string request = client::ComposeRequest("GetInfo", {});
            if (client::Ask(agent.Target(), request, answer, error)) ++answered;
        });
    }
    for (auto& thread : clients) thread.join();
    EXPECT_EQ(answered, kClients);
    EXPECT_EQ(Value(agent.Ask("GetInfo"), "OpenedConnections"), std::to_string(kClients + 1));
}

TEST(Serving, ACrowdLeavesAReserveOfDescriptors) {
    AgentOptions options = With("timeout=2000\n");
    options.prefix = {"/bin/sh", "-c", "ulimit -n 160; exec \"$@\"", "sh"};
    AgentProcess agent(options);
    std::vector<client::AgentConnection> crowd;
    for (int i = 0; i < 300; ++i) crowd.push_back(agent.Connect());
    // Those that wait in the backlog are served when the first have timed out.
    EXPECT_EQ(agent.Ask("GetInfo").code, "200");
    EXPECT_EQ(agent.Output().find("Accept fatal error"), std::string::npos);
}

TEST(Serving, PeersThatResetDoNoHarm) {
    AgentProcess agent;
    std::string packet = GetInfoPacket(agent);
    for (int i = 0; i < 200; ++i) {
        client::AgentConnection connection = agent.Connect();
        Send(connection, i % 2 == 0 ? packet : packet.substr(0, 20));
        linger reset = {1, 0};
        setsockopt(connection.Fd(), SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
        connection.Close();
    }
    EXPECT_TRUE(WaitUntil([&] { return Value(agent.Ask("GetInfo"), "ActiveConnections") == "1"; }));
}

TEST(Serving, TcpAndUdpTestsRunAgainstRealServices) {
    AgentProcess agent;
    AgentProcess other;
    client::Answer answer =
        agent.Ask("TEST-TCP", {"127.0.0.1", std::to_string(other.Port()), "5000", "", "0"});
    EXPECT_EQ(answer.code, "200");
    ASSERT_EQ(answer.lines.size(), 2u);
    EXPECT_EQ(answer.lines[1], "");

    UniqueFd echo(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    ASSERT_EQ(bind(echo.Get(), reinterpret_cast<sockaddr*>(&address), size), 0);
    ASSERT_EQ(getsockname(echo.Get(), reinterpret_cast<sockaddr*>(&address), &size), 0);
    std::thread service([&echo] {
        char buffer[64];
        sockaddr_in peer = {};
        socklen_t peerSize = sizeof peer;
        ssize_t n = recvfrom(echo.Get(), buffer, sizeof buffer, 0,
                             reinterpret_cast<sockaddr*>(&peer), &peerSize);
        sendto(echo.Get(), buffer, static_cast<size_t>(n), 0, reinterpret_cast<sockaddr*>(&peer),
               peerSize);
    });
    answer = agent.Ask("TEST-UDP", {"127.0.0.1", std::to_string(ntohs(address.sin_port)), "9000",
                                    "1", "ping", "10"});
    service.join();
    EXPECT_EQ(answer.code, "200");
    ASSERT_EQ(answer.lines.size(), 2u);
    EXPECT_EQ(answer.lines[1], "ping");
}

TEST(Serving, ReloadsUnderLoadLoseNothing) {
    AgentOptions options;
    options.arguments = {"-d"};
    AgentProcess agent(options);
    std::atomic<bool> stop{false};
    std::atomic<int> failures{0};
    std::vector<std::thread> clients;
    for (int i = 0; i < 4; ++i) {
        clients.emplace_back([&] {
            while (!stop) {
                client::Answer answer;
                std::string error;
                std::string request = client::ComposeRequest("GetSettings", {});
                if (!client::Ask(agent.Target(), request, answer, error)) ++failures;
            }
        });
    }
    for (int i = 0; i < 100; ++i) {
        agent.Signal(SIGHUP);
        agent.Ask("SetSettings", {"Comment=round " + std::to_string(i)});
        client::AgentConnection passing = agent.Connect();
    }
    stop = true;
    for (auto& thread : clients) thread.join();
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(Value(agent.Ask("GetInfo"), "Comment"), "round 99");
}

}  // namespace
}  // namespace zot::test
