// A segmentation fault: an agent that has run for a while is back in service, a young one is not.

#include <gtest/gtest.h>
#include <signal.h>

#include <string>
#include <thread>
#include <vector>

#include "tests/support/agent_process.h"
#include "tests/support/fault_injection.h"

namespace zot::test {
namespace {

constexpr int64_t kLongUptime = 200;

bool Answers(const AgentProcess& agent) { return TryAsk(agent.Target(), "GetInfo"); }

AgentOptions WithFaults(const FaultInjection& faults, std::string mode) {
    return {.arguments = {std::move(mode), "-v"},
            .settings = "verboselogfile=verbose.txt\nbadlogfile=bad.txt\n",
            .environment = faults.Environment()};
}

TEST(Crash, AYoungAgentDies) {
    FaultInjection faults;
    AgentProcess agent(WithFaults(faults, "-i"));
    faults->clockOffsetSeconds.store(100);
    faults->crashInUname.store(true);
    EXPECT_FALSE(Answers(agent));
    EXPECT_EQ(agent.WaitForExit(), -SIGSEGV);
    EXPECT_EQ(Count(agent.Output(), "\t Segmentation fault!!\n"), 1u);
    EXPECT_EQ(Count(agent.Output(), "Restarting"), 0u);
}

TEST(Crash, AnOldAgentIsReplacedInPlace) {
    FaultInjection faults;
    AgentProcess agent(WithFaults(faults, "-i"));
    pid_t pid = agent.Pid();
    // The second image must be able to do it again: nothing is blocked or ignored in it.
    for (auto* order : {&faults->crashInUname, &faults->crashInLocaltime}) {
        faults->clockOffsetSeconds.fetch_add(kLongUptime);
        order->store(true);
        // The time of day is asked for only once a second.
        EXPECT_TRUE(WaitUntil([&] { return !Answers(agent); }));
        EXPECT_TRUE(WaitUntil([&] { return !order->load() && Answers(agent); }));
    }
    EXPECT_EQ(agent.Pid(), pid);
    std::string output = agent.Output();
    EXPECT_EQ(Count(output, "\t Segmentation fault!!\n"), 2u);
    EXPECT_EQ(Count(output, "\t Restarting..\n"), 2u);
    EXPECT_EQ(Count(output, "\t Listening...\n"), 3u);
    EXPECT_EQ(Count(ReadFile(agent.Dir() / "bad.txt"), "]\t zot\t\t Restarting..\n"), 2u);
    EXPECT_EQ(agent.Ask("QUIT").code, "200");
    EXPECT_EQ(agent.WaitForExit(), 0);
}

TEST(Crash, ADaemonDetachesAgain) {
    FaultInjection faults;
    AgentProcess agent(WithFaults(faults, "-d"));
    pid_t first = agent.Pid();
    faults->clockOffsetSeconds.store(kLongUptime);
    // A fault on the main thread, which waits for connections.
    agent.Signal(SIGSEGV);
    EXPECT_TRUE(WaitUntil([&] { return agent.Pid() != 0 && agent.Pid() != first; }));
    EXPECT_TRUE(WaitUntil([&] { return Answers(agent); }));
    EXPECT_EQ(agent.Ask("QUIT").code, "200");
    EXPECT_TRUE(agent.WaitForDaemonEnd());
}

TEST(Crash, WithoutThreadsTheAgentGoesOn) {
    FaultInjection faults;
    AgentProcess agent(WithFaults(faults, "-i"));
    EXPECT_TRUE(Answers(agent));
    faults->thread.Fail(EAGAIN);
    EXPECT_TRUE(Answers(agent));
    // More long requests at once than there are threads, and none to be had.
    std::vector<std::thread> clients;
    for (int i = 0; i < 4; ++i) {
        clients.emplace_back([&] {
            EXPECT_EQ(agent.Ask("TEST-ExternalPrg", {"/bin/sleep 0.3", "0", "0", "9000"}).code,
                      "200");
        });
    }
    for (std::thread& client : clients) client.join();
    EXPECT_NE(
        agent.Output().find("\t Cannot start session thread: Resource temporarily unavailable\n"),
        std::string::npos);
    faults->thread.Stop();
    EXPECT_TRUE(Answers(agent));
}

}  // namespace
}  // namespace zot::test
