// Crowds and hostile peers: what one connection does must cost the others nothing, and must end.
//
// The sizes are small here; ZOT_FLOOD multiplies them (tools/soak.sh).

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <time.h>

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
#include "tests/support/decrypt.h"
#include "tests/support/process_info.h"

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

// The median time of requests, in microseconds.
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

// The processor time that the agent has used.
double ProcessorMs(const AgentProcess& agent) {
    clockid_t clock{};
    timespec time{};
    EXPECT_EQ(clock_getcpuclockid(agent.Pid(), &clock), 0);
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) / 1e6;
}

bool IsStillOpen(const AgentConnection& connection) {
    pollfd descriptor = {connection.Fd(), POLLIN, 0};
    return poll(&descriptor, 1, 0) == 0;
}

void Reset(AgentConnection& connection) {
    linger now = {1, 0};
    setsockopt(connection.Fd(), SOL_SOCKET, SO_LINGER, &now, sizeof now);
    connection.Close();
}

// The figures of docs/reliability.md come from here.
template <typename... Values>
void Report(const char* format, Values... values) {
    std::printf(format, values...);
}

TEST(Floods, IdleCrowd) {
    RaiseDescriptorLimit();
    AgentProcess agent(With("timeout=-1\n"));
    const int crowd = Scaled(500);
    const int requests = Scaled(50);
    double alone = MedianLatency(agent, requests);
    long before = ResidentKib(agent.Pid());
    std::vector<AgentConnection> idle;
    for (int i = 0; i < crowd; ++i) {
        idle.push_back(agent.Connect());
        // Some have begun a packet.
        if (i % 2 == 0) Send(idle.back(), {"\x40\0\0\0\3", 5});
    }
    EXPECT_TRUE(
        WaitUntil([&] { return agent.Info("ActiveConnections") == std::to_string(crowd + 1); }));
    double crowded = MedianLatency(agent, requests);
    Report("%d idle: median %.0f us alone, %.0f us crowded, ratio %.2f, %.1f KiB each\n", crowd,
           alone, crowded, crowded / alone,
           static_cast<double>(ResidentKib(agent.Pid()) - before) / crowd);
    if (kMeasurable) {
        EXPECT_LT(ResidentKib(agent.Pid()) - before, crowd / 2 + 256) << "KiB";
        EXPECT_LE(ThreadCount(agent.Pid()), 30);
    }
    double used = ProcessorMs(agent);
    std::this_thread::sleep_for(std::chrono::seconds(2));
    used = ProcessorMs(agent) - used;
    if (kMeasurable) {
        EXPECT_LT(used, 20.0) << "milliseconds of processor time in two seconds";
    }
    EXPECT_TRUE(std::all_of(idle.begin(), idle.end(), IsStillOpen));
    idle.clear();
    EXPECT_TRUE(agent.IsAlone());
}

TEST(Floods, PeersThatNeverReadALargeReplyAreDropped) {
    AgentProcess agent(With("timeout=1000\ndelayforscripts=0\n"));
    // Far more than the sockets of both sides hold.
    constexpr size_t kLineLength = 500;
    constexpr size_t kLines = 10000;
    std::string script =
        "yes " + std::string(kLineLength, 'y') + "|head -n " + std::to_string(kLines);
    std::string packet =
        agent.Packet(kKey, "TEST-ShellScript\nsh %script% \n" + script + "\n-\n0\n99999\n\r");
    // With a sanitizer or beside other work it takes a while to make and encrypt the reply.
    constexpr auto kLong = 10 * kPatience;
    std::vector<AgentConnection> deaf(static_cast<size_t>(Scaled(1)));
    for (auto& connection : deaf) {
        connection = agent.Connect();
        Send(connection, packet);
    }
    EXPECT_TRUE(agent.IsAlone(kLong));

    // One that reads gets everything, although that takes longer than the time-out, and so does
    // each of its first pauses.
    AgentConnection slow = agent.Connect();
    int small = 65536;
    setsockopt(slow.Fd(), SOL_SOCKET, SO_RCVBUF, &small, sizeof small);
    Send(slow, packet);
    std::string reply;
    char first = 0;
    EXPECT_TRUE(WaitUntil([&] { return recv(slow.Fd(), &first, 1, MSG_PEEK) == 1; }, kLong));
    auto start = steady_clock::now();
    while (steady_clock::now() - start < milliseconds(2500)) {
        char part[20000];
        ssize_t got = recv(slow.Fd(), part, sizeof part, 0);
        if (got > 0) reply.append(part, static_cast<size_t>(got));
        std::this_thread::sleep_for(milliseconds(reply.size() < 30000 ? 1500 : 20));
    }
    reply += UntilClose(slow, kLong);
    EXPECT_GT(reply.size(), kLineLength * kLines);
    std::string text = Decrypt(kKey, std::string_view(reply).substr(4));
    EXPECT_TRUE(text.starts_with("200\n") && text.ends_with("\n\r"));
    EXPECT_TRUE(agent.IsAlone());
}

TEST(Floods, OneByteAtATime) {
    AgentProcess agent(With("timeout=1000\n"));
    std::vector<AgentConnection> crowd(static_cast<size_t>(Scaled(50)));
    std::string packet = agent.Packet(kKey, "GetInfo\n\r");
    for (auto& connection : crowd) connection = agent.Connect();
    // Each byte restarts the time-out, so all arrive, although that takes longer.
    auto pause = milliseconds(1500) / packet.size();
    for (char byte : packet) {
        for (auto& connection : crowd) Send(connection, {&byte, 1});
        std::this_thread::sleep_for(pause);
    }
    for (auto& connection : crowd) ReceiveReply(connection, kKey);
    EXPECT_TRUE(agent.IsAlone());
}

TEST(Floods, HalfClosedAndReset) {
    AgentProcess agent(With("timeout=2000\n"));
    std::string packet = agent.Packet(kKey, "GetInfo\n\r");
    for (int i = 0; i < Scaled(300); ++i) {
        AgentConnection connection = agent.Connect();
        Send(connection, packet.substr(0, static_cast<size_t>(i) % (packet.size() + 1)));
        if (i % 3 == 0) shutdown(connection.Fd(), SHUT_WR);
        if (i % 3 == 1) Reset(connection);
    }
    EXPECT_TRUE(agent.IsAlone());
    // A peer that says no more after its request still gets the reply.
    AgentConnection connection = agent.Connect();
    Send(connection, packet);
    shutdown(connection.Fd(), SHUT_WR);
    ReceiveReply(connection, kKey);
}

TEST(Floods, ARefusedPeerThatComesBack) {
    AgentProcess agent(
        With("logfails=1\nfilteractive=1\nfilterlist=10.0.0.1\nfiltermarks=1\n", "-n 100"));
    const int count = Scaled(2000);
    auto start = steady_clock::now();
    for (int i = 0; i < count; ++i) {
        AgentConnection connection = agent.Connect();
        ASSERT_EQ(UntilClose(connection), "");
        if (i % 2 == 0) Reset(connection);
    }
    Report("%d refused in %.1f s, %ld KiB\n", count,
           std::chrono::duration<double>(steady_clock::now() - start).count(),
           ResidentKib(agent.Pid()));
    EXPECT_FALSE(agent.WaitForExit(milliseconds(0)).has_value());
    EXPECT_EQ(Count(agent.Output(), "\t 127.0.0.1\t TCP connection rejected\n"),
              static_cast<size_t>(count));
}

TEST(Floods, AnnouncedLengthsOfEverySize) {
    AgentProcess agent(With("timeout=2000\n"));
    const client::RequestFields good =
        client::MakeRequest(agent.Target().password, kKey, "GetInfo\n\r");
    std::vector<AgentConnection> open;
    long before = ResidentKib(agent.Pid());
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
    // Announced bytes take no memory: 256 small buffers, however large the number was.
    if (kMeasurable) {
        EXPECT_LT(ResidentKib(agent.Pid()) - before, 1024);
    }
    EXPECT_TRUE(agent.IsAlone());
}

TEST(Floods, AStrangersConnectionHoldsNoMoreThanALimit) {
    AgentProcess agent(With("timeout=4000\n"));
    constexpr size_t kLimit = size_t{16} << 20;
    AgentConnection connection = agent.Connect();
    std::string packet(kLimit + 4096, 'x');
    // Announces exactly what is still accepted, and sends more.
    packet.replace(0, 6, std::string("\xfc\xff\xff\x00\x03\x12", 6));
    std::string error;
    static_cast<void>(connection.Send(packet, Deadline(kPatience), error));
    EXPECT_EQ(UntilClose(connection), "");
    EXPECT_TRUE(agent.IsAlone());
    AgentConnection greedy = agent.Connect();
    Send(greedy, {"\xfd\xff\xff\x00\x03\x12", 6});
    UntilClose(greedy, milliseconds(3000));
}

TEST(Floods, ATreeDeeperThanThereAreDescriptors) {
    TempDir top;
    std::string depth = top.Path();
    fs::path here = fs::current_path();
    // Too deep for one path, so it is made from inside.
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
        while (!stop) TryAsk(agent.Target(), "TEST-FolderSize", {depth, "1"});
    });
    bool served = true;
    for (int i = 0; i < Scaled(100) && served; ++i) served = TryAsk(agent.Target(), "GetInfo");
    stop = true;
    walker.join();
    EXPECT_TRUE(served);
    EXPECT_FALSE(agent.WaitForExit(milliseconds(0)).has_value()) << agent.Output();
}

}  // namespace
}  // namespace zot::test
