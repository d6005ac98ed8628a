// Every kind of request, good and bad, from several clients at once, with reloads and changes of
// settings: afterwards the agent holds no more than before. ZOT_SOAK_SECONDS sets the duration.

#include <gtest/gtest.h>
#include <signal.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/agent_process.h"
#include "tests/support/checkers.h"
#include "tests/support/process_info.h"

namespace zot::test {
namespace {

constexpr int kClients = 4;
constexpr long kDefaultSeconds = 8;
// What a longer run may add: the allocator's reserves (on FreeBSD 1.4 to 2.1 MiB, after 8 seconds
// as after 72), not a leak, which grows with the run.
constexpr long kMemorySlackKib = 3072;

struct Request {
    std::string command;
    std::vector<std::string> params;
};

// What the process holds.
struct Holdings {
    long memoryKib = 0;
    long threads = 0;
    size_t descriptors = 0;
    size_t files = 0;
};

Holdings Look(const AgentProcess& agent) {
    std::filesystem::directory_iterator files(agent.Dir().Path());
    return {ResidentKib(agent.Pid()), ThreadCount(agent.Pid()), DescriptorsOf(agent.Pid()).size(),
            static_cast<size_t>(std::distance(files, std::filesystem::directory_iterator()))};
}

std::vector<Request> Mix(const AgentProcess& agent, const TempDir& data) {
    std::string port = std::to_string(agent.Port());
    std::string file = data / "file.txt";
    return {
        {"GetInfo", {}},
        {"GetSettings", {}},
        {"SetSettings", {"Comment=soak", "Ping=1"}},
        {"ReloadCfg", {}},
        {"NoSuchCommand", {}},
        {"TEST-TCP", {"127.0.0.1", port, "2000", "hello", "0"}},
        {"TEST-UDP", {"127.0.0.1", "9", "1000", "1", "hello", "0"}},
        {"TEST-UNC", {"/"}},
        {"TEST-FolderSize", {data.Path(), "1"}},
        {"TEST-CountFiles", {data.Path(), "*", "0", "0", "0"}},
        {"TEST-FileExists", {data / "*.txt"}},
        {"TEST-FileCompare", {"3", file, "error", "0", "1", "0"}},
        {"TEST-FileHash", {file, "2", "0"}},
        {"TEST-TextLog", {file, "error", "0", "1", "1", "0", "1", "0", "0"}},
        {"TEST-TextLog2", {file, "0", "1", "1", "1", "'error' or 'x'", "1", "0", "0", "0"}},
        {"GetFilesList", {data.Path(), "*", "1", "1", "1", "1", "1", "1", "1"}},
        {"TEST-Process", {"0", "zot"}},
        {"GetProcessesList", {}},
        {"TEST-ExternalPrg", {"true", "0", "0", "5000"}},
        {"TEST-ShellScript", {"/bin/sh %script% %params%", "echo scriptres:$1", "7", "10", "5"}},
        {"ACT-ExternalCmd", {"true", "/", "0", "5000"}},
        {"ACT-Syslog", {"127.0.0.1", "9", "1", "1", "soak"}},
        {"ACT-TCPUDPsend", {"127.0.0.1", "9", "1", "data", "0", "more"}},
    };
}

// One client's turn through the mix, and through what no server would send.
void Turn(const AgentProcess& agent, const std::vector<Request>& mix, std::atomic<long>& answered) {
    for (const Request& request : mix) {
        client::Answer answer;
        ASSERT_TRUE(TryAsk(agent.Target(), request.command, request.params, &answer))
            << request.command;
        bool expected = answer.code == (request.command == "NoSuchCommand" ? "500" : "200");
        EXPECT_TRUE(expected) << request.command << " " << answer.code << " "
                              << (answer.lines.empty() ? "" : answer.lines[0]);
        ++answered;
    }
    client::AgentConnection garbage = agent.Connect();
    Send(garbage, std::string(100, 'g'));
    client::AgentConnection silent = agent.Connect();
}

TEST(Soak, AfterwardsTheAgentHoldsWhatItHeld) {
    const char* setting = std::getenv("ZOT_SOAK_SECONDS");
    auto length = std::chrono::seconds(setting != nullptr ? std::atol(setting) : kDefaultSeconds);
    TempDir data;
    data.Write("file.txt", "first\nan error here\nlast\n");
    AgentOptions options;
    options.arguments = {"-d"};
    options.settings =
        "delayforscripts=0\nexecuteaction=1\nsyslogaction=1\ntcpudpaction=1\n"
        "proccntscript=" ZOT_SOURCE_DIR
        "/scripts/zot_proccnt.sh\n"
        "proclistscript=" ZOT_SOURCE_DIR "/scripts/zot_proclist.sh\n";
    AgentProcess agent(options);
    const std::vector<Request> mix = Mix(agent, data);
    std::atomic<long> answered{0};
    auto runFor = [&](std::chrono::milliseconds time) {
        auto end = std::chrono::steady_clock::now() + time;
        std::vector<std::thread> clients;
        for (int i = 0; i < kClients; ++i) {
            clients.emplace_back([&] {
                do {
                    Turn(agent, mix, answered);
                } while (std::chrono::steady_clock::now() < end && !testing::Test::HasFailure());
            });
        }
        while (std::chrono::steady_clock::now() < end) {
            agent.Signal(SIGHUP);
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        for (std::thread& client : clients) client.join();
    };
    // Its pid file is there before its event queue.
    EXPECT_TRUE(WaitUntil([&] { return Look(agent).threads >= 3; }));
    const size_t idle = Look(agent).descriptors;
    auto settled = [&] {
        Holdings now = Look(agent);
        // The main thread and two that serve; the thread checker has threads of its own.
        return now.descriptors == idle && (kThreadChecker || now.threads == 3);
    };
    runFor(length / 4);  // buffers and libraries that stay
    EXPECT_TRUE(WaitUntil(settled));
    Holdings before = Look(agent);
    runFor(length);
    EXPECT_TRUE(WaitUntil(settled));
    Holdings after = Look(agent);
    EXPECT_EQ(after.files, before.files);
    if (kMeasurable) {
        EXPECT_LE(after.memoryKib, before.memoryKib + kMemorySlackKib);
    }
    std::printf("%ld requests; memory %ld KiB before, %ld KiB after\n", answered.load(),
                before.memoryKib, after.memoryKib);
}

}  // namespace
}  // namespace zot::test
