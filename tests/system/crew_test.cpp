// What one peer can take from the others: descriptors, memory, threads, and the reader of the log.
//
// The sizes are small here; ZOT_FLOOD multiplies them (tools/soak.sh).

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "base/files.h"
#include "base/owners.h"
#include "tests/support/agent_process.h"
#include "tests/support/checkers.h"
#include "tests/support/file_tree.h"
#include "tests/support/process_info.h"
#include "tests/support/temp_dir.h"

namespace zot::test {
namespace {

using client::AgentConnection;
using client::Deadline;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr char kKey[] = "a session key";

size_t Scaled(size_t size) {
    const char* factor = getenv("ZOT_FLOOD");
    return size * static_cast<size_t>(std::max(1, factor == nullptr ? 1 : atoi(factor)));
}

std::vector<std::string> WithDescriptors(int count) {
    return {"/bin/sh", "-c", "ulimit -n " + std::to_string(count) + " && exec \"$@\"", "sh"};
}

// The beginning of a packet that announces this many bytes after its length; the digest is right.
std::string Beginning(const AgentProcess& agent, uint32_t length) {
    client::RequestFields fields = client::MakeRequest(agent.Target().password, kKey, "");
    fields.packetLength = length;
    return client::Serialise(fields).substr(0, 24);
}

TEST(Crew, StrangersThatComeBackShutNobodyOut) {
    RaiseDescriptorLimit();
    // So long that a stranger outlives any pause of this machine between two calls.
    AgentProcess agent({.settings = "logfails=0\ntimeout=-1\n", .prefix = WithDescriptors(1024)});
    // None of these may go: a transfer, a running request, a packet that began correctly.
    AgentConnection transfer = agent.Connect();
    Send(transfer, agent.Packet(kKey, "UpgradeCode\n200\n\r"));
    EXPECT_EQ(ReceiveReply(transfer, kKey), "200\n\r");
    AgentConnection running = agent.Connect();
    Send(running, agent.Packet(kKey, "TEST-ExternalPrg\n/bin/sleep 2\n0\n0\n9000\n\r"));
    AgentConnection begun = agent.Connect();
    std::string packet = agent.Packet(kKey, "GetInfo\n\r");
    Send(begun, packet.substr(0, 24));
    std::atomic<bool> stop{false};
    std::atomic<size_t> strangers{0};
    std::vector<std::thread> crowd;
    for (int i = 0; i < 2; ++i) {
        crowd.emplace_back([&] {
            std::vector<AgentConnection> held(600);
            for (size_t turn = 0; !stop || strangers < Scaled(2000);) {
                AgentConnection& connection = held[turn % held.size()];
                std::string error;
                connection = AgentConnection();
                if (!connection.Open("127.0.0.1", agent.Port(), Deadline(kPatience), error)) {
                    // The queue is full. Elsewhere the system itself comes again, after a second.
                    std::this_thread::sleep_for(milliseconds(10));
                    continue;
                }
                if (turn++ % 2 == 0) connection.Send("\x40", Deadline(kPatience), error);
                ++strangers;
            }
        });
    }
    EXPECT_TRUE(WaitUntil([&] { return strangers > 1500; }));
    for (int i = 0; i < 10; ++i) {
        AgentConnection good = agent.Connect();
        Send(good, packet);
        EXPECT_TRUE(ReceiveReply(good, kKey).starts_with("200\n"));
    }
    stop = true;
    for (std::thread& thread : crowd) thread.join();
    EXPECT_TRUE(ReceiveReply(running, kKey).starts_with("200\n"));
    Send(begun, packet.substr(24));
    EXPECT_TRUE(ReceiveReply(begun, kKey).starts_with("200\n"));
    Send(transfer, std::string(216, 'x'));
    EXPECT_EQ(ReceiveReply(transfer, kKey), "300\nWrong CRC\n\r");
    // Hundreds of strangers did not have a thread each.
    EXPECT_LE(ThreadCount(agent.Pid()), 30);
}

TEST(Crew, MoreSlowChecksThanDescriptorsTakeTurns) {
    AgentProcess agent({.settings = "logfails=0\n", .prefix = WithDescriptors(100)});
    const std::string check =
        agent.Packet(kKey, "TEST-ExternalPrg\n/bin/sleep 0.3\n0\n0\n9000\n\r");
    std::vector<AgentConnection> slow(150);
    for (AgentConnection& connection : slow) {
        connection = agent.Connect();
        Send(connection, check);
    }
    EXPECT_EQ(agent.Ask("GetInfo").code, "200");
    // Those that found no descriptors for their child say so; the agent itself goes on.
    for (AgentConnection& connection : slow) EXPECT_NE(ReceiveReply(connection, kKey), "");
    EXPECT_TRUE(agent.IsAlone());
}

TEST(Crew, AcceptingThatHasToWaitHearsTheHangup) {
    RaiseDescriptorLimit();
    AgentProcess agent({.arguments = {"-d"},
                        .settings = "logfails=0\ntimeout=-1\n",
                        .prefix = WithDescriptors(100)});
    std::vector<AgentConnection> known;
    for (int i = 0; i < 100; ++i) {
        known.push_back(agent.Connect());
        Send(known.back(), Beginning(agent, 500));
    }
    // They are not strangers, so the next one waits until they have been silent for too long, by a
    // time-out that comes with the hang-up.
    AgentConnection next = agent.Connect();
    Send(next, agent.Packet(kKey, "GetInfo\n\r"));
    std::ofstream(agent.ConfigPath(), std::ios::app) << "timeout=1000\n";
    agent.Signal(SIGHUP);
    EXPECT_TRUE(ReceiveReply(next, kKey).starts_with("200\n"));
    EXPECT_TRUE(agent.IsAlone());
}

TEST(Crew, WhatIsOnItsWayTakesABoundedPlace) {
    AgentProcess agent({.settings = "logfails=0\ntimeout=-1\n"});
    constexpr size_t kMiB = size_t{1} << 20;
    constexpr uint32_t kAnnounced = 16 * kMiB - 4;
    auto sendMany = [&](const std::string& beginning, size_t count) {
        std::vector<AgentConnection> connections(count);
        for (AgentConnection& connection : connections) {
            connection = agent.Connect();
            Send(connection, beginning);
            std::string error;
            connection.Send(std::string(15 * kMiB, 'x'), Deadline(kPatience), error);
        }
        return connections;
    };
    const long before = ResidentKib(agent.Pid());
    std::string wrong = Beginning(agent, kAnnounced);
    wrong[20] = static_cast<char>(wrong[20] ^ 1);
    std::vector<AgentConnection> strangers = sendMany(wrong, 4);
    if (kMeasurable) {
        EXPECT_LT(ResidentKib(agent.Pid()) - before, 2048) << "KiB for strangers";
    }
    std::vector<AgentConnection> known = sendMany(Beginning(agent, kAnnounced), 6);
    if (kMeasurable) {
        EXPECT_LT(ResidentKib(agent.Pid()) - before, 100 * 1024) << "KiB for all";
    }
    EXPECT_EQ(agent.Ask("GetInfo").code, "200");
    // A stranger's packet is judged at its end, like any other.
    Send(strangers[0], std::string(kMiB - 24, 'x'));
    EXPECT_EQ(UntilClose(strangers[0]), "");
}

TEST(Crew, SlowChecksLeaveQuickOnesFastAndThreadsGoBack) {
    AgentProcess agent({.settings = "logfails=0\n"});
    TempDir dir;
    const std::string pipe = dir / "pipe";
    MakeFifo(pipe);
    UniqueFd end(open(pipe.c_str(), O_RDWR | O_CLOEXEC));
    const std::string program = "/bin/dd bs=1 count=1 if=" + pipe;
    constexpr int kSlow = 60;
    std::vector<std::thread> slow;
    for (int i = 0; i < kSlow; ++i) {
        slow.emplace_back([&] {
            EXPECT_EQ(agent.Ask("TEST-ExternalPrg", {program, "0", "0", "60000"}).code, "200");
        });
    }
    // All of them run at once, and there is still always a free thread.
    EXPECT_TRUE(WaitUntil([&] { return agent.Info("ActiveConnections") == "61"; }));
    EXPECT_TRUE(WaitUntil([&] { return ThreadCount(agent.Pid()) > kSlow; }));
    auto start = steady_clock::now();
    for (int i = 0; i < 20; ++i) EXPECT_EQ(agent.Ask("GetInfo").code, "200");
    EXPECT_LT(steady_clock::now() - start, milliseconds(1500));
    // A byte for each of them.
    EXPECT_TRUE(WriteAll(end.Get(), std::string(kSlow, 'x')));
    for (std::thread& thread : slow) thread.join();
    if (!kThreadChecker) {
        EXPECT_TRUE(WaitUntil([&] { return ThreadCount(agent.Pid()) <= 3; }));
    }
}

TEST(Crew, AThreadThatStoodBackForLongWorkComesForwardOrGoes) {
    TempDir dir;
    constexpr int kMany = 5000;
    for (int i = 0; i < kMany; ++i) MakeFile(dir / std::to_string(i), 1);
    // With the right to come forward again, where the test has it, and without.
    const char* const without =
        "setpriv --bounding-set=-sys_nice true 2>/dev/null && "
        "exec setpriv --bounding-set=-sys_nice \"$@\"; exec \"$@\"";
    for (const char* start : {"exec \"$@\"", without}) {
        AgentProcess agent({.settings = "logfails=0\n", .prefix = {"/bin/sh", "-c", start, "sh"}});
        const int before = LargestNice(agent.Pid());
        for (int i = 0; i < 5; ++i) {
            client::Answer answer = agent.Ask("TEST-FolderSize", {dir.Path(), "1"});
            EXPECT_EQ(answer.code, "200");
        }
        EXPECT_TRUE(WaitUntil([&] { return LargestNice(agent.Pid()) == before; }));
        EXPECT_TRUE(WaitUntil([&] { return ThreadCount(agent.Pid()) >= 3; }));
        EXPECT_EQ(agent.Ask("GetInfo").code, "200");
    }
}

TEST(Crew, APacketMayBeCutAtEveryByte) {
    AgentProcess agent({.settings = "timeout=-1\n"});
    const std::string packet = agent.Packet(kKey, "GetInfo\n\r");
    std::vector<AgentConnection> connections(packet.size() - 1);
    for (size_t cut = 1; cut < packet.size(); ++cut) {
        connections[cut - 1] = agent.Connect();
        Send(connections[cut - 1], packet.substr(0, cut));
    }
    const std::string all = std::to_string(packet.size());
    EXPECT_TRUE(WaitUntil([&] { return agent.Info("ActiveConnections") == all; }));
    for (size_t cut = 1; cut < packet.size(); ++cut) {
        Send(connections[cut - 1], packet.substr(cut));
        EXPECT_TRUE(ReceiveReply(connections[cut - 1], kKey).starts_with("200\n")) << cut;
    }
}

TEST(Crew, AReaderOfTheConsoleMayStop) {
    TempDir dir;
    const std::string fifo = dir / "console";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    // The agent's own process holds the end that nobody reads from.
    AgentProcess agent(
        {.arguments = {"-i", "-v"},
         .settings = "verboselogfile=all.txt\n",
         .prefix = {"/bin/sh", "-c", "exec 3<>" + fifo + " && exec \"$@\" >&3", "sh"},
         .awaitReady = false});
    ASSERT_TRUE(WaitUntil([&] { return TryAsk(agent.Target(), "GetInfo"); }));
    constexpr size_t kMoreThanAPipeHolds = 500;
    for (size_t i = 0; i < kMoreThanAPipeHolds; ++i) {
        ASSERT_TRUE(TryAsk(agent.Target(), "GetInfo")) << i;
    }
    EXPECT_GE(Count(ReadFile(agent.Dir() / "all.txt"), "Session closed"), kMoreThanAPipeHolds);
}

}  // namespace
}  // namespace zot::test
