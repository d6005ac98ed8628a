// Crowds and hostile peers: what one connection does must cost the others nothing and must end.
//
// The sizes are small here; ZOT_FLOOD multiplies them (tools/soak.sh).

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/agent_process.h"
#include "tests/support/checkers.h"

namespace zot::test {
namespace {

using client::AgentConnection;
using client::Deadline;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
namespace fs = std::filesystem;

constexpr char kKey[] = "a session key";

int Scaled(int size) {
    const char* factor = getenv("ZOT_FLOOD");
    return size * std::max(1, factor == nullptr ? 1 : atoi(factor));
}

AgentOptions With(std::string settings, std::string limits = "") {
    AgentOptions options;
    options.settings = "logfails=0\n" + std::move(settings);
    if (!limits.empty()) {
        options.prefix = {"/bin/sh", "-c", "ulimit " + limits + " && exec \"$@\"", "sh"};
    }
    return options;
}

std::string Packet(const AgentProcess& agent, std::string_view request) {
    return client::BuildRequest(agent.Target().password, kKey, request);
}

void Send(AgentConnection& connection, std::string_view bytes) {
    std::string error;
    EXPECT_TRUE(connection.Send(bytes, Deadline(kPatience), error)) << error;
}

std::string Value(const AgentProcess& agent, const std::string& name) {
    for (const std::string& line : agent.Ask("GetInfo").lines) {
        if (line.starts_with(name + "=")) return line.substr(name.size() + 1);
    }
    return "(none)";
}

bool IsAlone(const AgentProcess& agent) {
    return WaitUntil([&] { return Value(agent, "ActiveConnections") == "1"; });
}

// The middle of the times that requests take, in microseconds.
double MedianLatency(const AgentProcess& agent, int requests) {
    std::vector<double> times;
    for (int i = 0; i < requests; ++i) {
        auto start = steady_clock::now();
        EXPECT_EQ(agent.Ask("GetInfo").code, "200");
        times.push_back(
            std::chrono::duration<double, std::micro>(steady_clock::now() - start).count());
    }
    std::nth_element(times.begin(), times.begin() + requests / 2, times.end());
    return times[static_cast<size_t>(requests) / 2];
}

// Kibibytes of the agent's memory that are really there; 0 where the system does not tell.
long ResidentMemory(const AgentProcess& agent) {
    std::ifstream status("/proc/" + std::to_string(agent.Pid()) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmRSS:")) return std::stol(line.substr(6));
    }
    return 0;
}

void RaiseOwnDescriptorLimit() {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

void Reset(AgentConnection& connection) {
    linger now = {1, 0};
    setsockopt(connection.Fd(), SOL_SOCKET, SO_LINGER, &now, sizeof now);
    connection.Close();
}

// What the figures of docs/reliability.md are read from.
template <typename... Values>
void Report(const char* format, Values... values) {
    std::printf(format, values...);
}

TEST(Floods, IdleCrowd) {
    RaiseOwnDescriptorLimit();
    AgentProcess agent(With("timeout=-1\n"));
    const int crowd = Scaled(500);
    const int requests = Scaled(50);
    double alone = MedianLatency(agent, requests);
    long before = ResidentMemory(agent);
    std::vector<AgentConnection> idle;
    for (int i = 0; i < crowd; ++i) {
        idle.push_back(agent.Connect());
        // Some have begun a packet.
        if (i % 2 == 0) Send(idle.back(), {"\x40\0\0\0\3", 5});
    }
    EXPECT_TRUE(
        WaitUntil([&] { return Value(agent, "ActiveConnections") == std::to_string(crowd + 1); }));
    double crowded = MedianLatency(agent, requests);
    Report("%d idle: median %.0f us alone, %.0f us crowded, ratio %.2f, %.1f KiB each\n", crowd,
           alone, crowded, crowded / alone,
           static_cast<double>(ResidentMemory(agent) - before) / crowd);
    idle.clear();
    EXPECT_TRUE(IsAlone(agent));
}

TEST(Floods, PeersThatNeverReadALargeReplyAreDropped) {
    AgentProcess agent(With("timeout=1000\ndelayforscripts=0\n"));
    // Far more than what the sockets of both sides hold.
    constexpr size_t kLineLength = 500;
    constexpr size_t kLines = 10000;
    std::string script =
        "yes " + std::string(kLineLength, 'y') + "|head -n " + std::to_string(kLines);
    std::string packet =
        Packet(agent, "TEST-ShellScript\nsh %script% \n" + script + "\n-\n30\n99999\n\r");
    std::vector<AgentConnection> deaf(static_cast<size_t>(Scaled(1)));
    for (auto& connection : deaf) {
        connection = agent.Connect();
        Send(connection, packet);
    }
    EXPECT_TRUE(IsAlone(agent));

    // One that reads gets all of it, although that takes longer than the time-out.
    AgentConnection slow = agent.Connect();
    int small = 65536;
    setsockopt(slow.Fd(), SOL_SOCKET, SO_RCVBUF, &small, sizeof small);
    Send(slow, packet);
    std::string reply;
    std::string error;
    char first = 0;
    // Under a checker it takes a while to make and encrypt the reply.
    EXPECT_TRUE(
        WaitUntil([&] { return recv(slow.Fd(), &first, 1, MSG_PEEK) == 1; }, 10 * kPatience));
    auto start = steady_clock::now();
    while (steady_clock::now() - start < milliseconds(2500)) {
        char part[20000];
        ssize_t got = recv(slow.Fd(), part, sizeof part, 0);
        if (got > 0) reply.append(part, static_cast<size_t>(got));
        std::this_thread::sleep_for(milliseconds(20));
    }
    EXPECT_TRUE(slow.ReceiveUntilClose(Deadline(kPatience), reply, error)) << error;
    EXPECT_GT(reply.size(), kLineLength * kLines);
    std::string text = client::Decrypt(kKey, std::string_view(reply).substr(4));
    EXPECT_TRUE(text.starts_with("200\n") && text.ends_with("\n\r"));
    EXPECT_TRUE(IsAlone(agent));
}

TEST(Floods, OneByteAtATime) {
    AgentProcess agent(With("timeout=1000\n"));
    std::vector<AgentConnection> crowd(static_cast<size_t>(Scaled(50)));
    std::string packet = Packet(agent, "GetInfo\n\r");
    for (auto& connection : crowd) connection = agent.Connect();
    // Each byte starts the time-out anew, so all come through, although it takes longer than that.
    auto pause = milliseconds(1500) / packet.size();
    for (char byte : packet) {
        for (auto& connection : crowd) Send(connection, {&byte, 1});
        std::this_thread::sleep_for(pause);
    }
    for (auto& connection : crowd) {
        std::string text;
        std::string error;
        EXPECT_TRUE(connection.ReceiveReply(kKey, Deadline(kPatience), text, error)) << error;
    }
    EXPECT_TRUE(IsAlone(agent));
}

TEST(Floods, HalfClosedAndReset) {
    AgentProcess agent(With("timeout=2000\n"));
    std::string packet = Packet(agent, "GetInfo\n\r");
    for (int i = 0; i < Scaled(300); ++i) {
        AgentConnection connection = agent.Connect();
        Send(connection, packet.substr(0, static_cast<size_t>(i) % (packet.size() + 1)));
        if (i % 3 == 0) shutdown(connection.Fd(), SHUT_WR);
        if (i % 3 == 1) Reset(connection);
    }
    EXPECT_TRUE(IsAlone(agent));
    // A peer that says no more after its request still gets the reply.
    AgentConnection connection = agent.Connect();
    Send(connection, packet);
    shutdown(connection.Fd(), SHUT_WR);
    std::string text;
    std::string error;
    EXPECT_TRUE(connection.ReceiveReply(kKey, Deadline(kPatience), text, error)) << error;
}

TEST(Floods, ARefusedPeerThatComesBack) {
    AgentProcess agent(With("filteractive=1\nfilterlist=10.0.0.1\nfiltermarks=1\n", "-n 100"));
    const int count = Scaled(2000);
    auto start = steady_clock::now();
    for (int i = 0; i < count; ++i) {
        AgentConnection connection = agent.Connect();
        std::string bytes;
        std::string error;
        ASSERT_TRUE(connection.ReceiveUntilClose(Deadline(kPatience), bytes, error)) << error;
        EXPECT_EQ(bytes, "");
        if (i % 2 == 0) Reset(connection);
    }
    Report("%d refused in %.1f s, %ld KiB\n", count,
           std::chrono::duration<double>(steady_clock::now() - start).count(),
           ResidentMemory(agent));
    EXPECT_FALSE(agent.WaitForExit(milliseconds(0)).has_value());
    agent.Dir().Write("zot.cfg", ReadFile(agent.ConfigPath()) + "filteractive=0\n");
}

TEST(Floods, AnnouncedLengthsOfEverySize) {
    AgentProcess agent(With("timeout=2000\n"));
    const client::RequestFields good =
        client::MakeRequest(agent.Target().password, kKey, "GetInfo\n\r");
    std::vector<AgentConnection> open;
    long before = ResidentMemory(agent);
    for (int shift = 0; shift < 32; ++shift) {
        for (uint32_t length : {uint32_t{1} << shift, (uint32_t{1} << shift) - 1}) {
            std::vector<client::RequestFields> packets(4, good);
            packets[0].packetLength = length;
            packets[1].textLength = length;
            packets[2].keyLength = static_cast<uint16_t>(length);
            packets[3].digestLength = static_cast<uint16_t>(length);
            for (const auto& packet : packets) {
                open.push_back(agent.Connect());
                Send(open.back(), client::Serialise(packet));
            }
        }
    }
    EXPECT_EQ(agent.Ask("GetInfo").code, "200");
    // What is announced is not set aside: 256 stacks and small buffers, however large it was.
    if (kMeasurable) {
        EXPECT_LT(ResidentMemory(agent) - before, 256 * 128);
    }
    EXPECT_TRUE(IsAlone(agent));
}

TEST(Floods, AStrangersConnectionHoldsNoMoreThanALimit) {
    AgentProcess agent(With("timeout=4000\n"));
    constexpr size_t kLimit = size_t{16} << 20;
    AgentConnection connection = agent.Connect();
    std::string packet(kLimit + 4096, 'x');
    // Announces just what is still taken, and sends more than that.
    packet.replace(0, 6, std::string("\xfc\xff\xff\x00\x03\x12", 6));
    std::string error;
    static_cast<void>(connection.Send(packet, Deadline(kPatience), error));
    std::string bytes;
    EXPECT_TRUE(connection.ReceiveUntilClose(Deadline(kPatience), bytes, error)) << error;
    EXPECT_EQ(bytes, "");
    EXPECT_TRUE(IsAlone(agent));
    AgentConnection greedy = agent.Connect();
    Send(greedy, {"\xfd\xff\xff\x00\x03\x12", 6});
    EXPECT_TRUE(greedy.ReceiveUntilClose(Deadline(milliseconds(3000)), bytes, error)) << error;
}

TEST(Floods, ATreeDeeperThanThereAreDescriptors) {
    TempDir top;
    std::string depth = top.Path();
    fs::path here = fs::current_path();
    // Too deep for one path, so it is made from within.
    fs::current_path(depth);
    for (int i = 0; i < 170; ++i) {
        // Where the descriptors end, the walk stays for a while.
        for (int file = 0; i > 140 && file < 300; ++file) std::ofstream(std::to_string(file));
        fs::create_directory("deeper");
        fs::current_path("deeper");
    }
    fs::current_path(here);
    AgentProcess agent(With("", "-n 160"));
    std::atomic<bool> stop{false};
    std::thread walker([&] {
        while (!stop) {
            client::Answer answer;
            std::string error;
            std::vector<std::string> params = {depth, "1"};
            client::Ask(agent.Target(), client::ComposeRequest("TEST-FolderSize", params), answer,
                        error);
        }
    });
    bool served = true;
    for (int i = 0; i < Scaled(100) && served; ++i) {
        client::Answer answer;
        std::string error;
        served = client::Ask(agent.Target(), client::ComposeRequest("GetInfo", {}), answer, error);
    }
    stop = true;
    walker.join();
    EXPECT_TRUE(served);
    EXPECT_FALSE(agent.WaitForExit(milliseconds(0)).has_value()) << agent.Output();
}

}  // namespace
}  // namespace zot::test
