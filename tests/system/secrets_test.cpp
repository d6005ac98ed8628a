// What must stay secret: passwords in logs, command lines and memory no longer in use, and files
// that others could read.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/agent_process.h"
#include "tests/support/process_info.h"

namespace zot::test {
namespace {

namespace fs = std::filesystem;

TEST(Secrets, APasswordThatWasReplacedIsNowhere) {
    AgentProcess agent({.arguments = {"-d", "-vd"},
                        .settings = "verboselogfile=verbose.txt\nlogsuccess=1\nlogfails=1\n"});
    client::Target target = agent.Target();
    // An allocator overwrites the beginning of freed memory, so this searches for the end.
    const std::string tail = "the end of the first secret";
    const std::string first = std::string(80, '-') + tail;
    auto ask = [&](const std::string& command, const std::vector<std::string>& params) {
        client::Answer answer;
        EXPECT_TRUE(TryAsk(target, command, params, &answer)) << command;
        return answer.code;
    };
    EXPECT_EQ(ask("SetSettings", {"Password=" + first}), "200");
    target.password = first;
    // Every way by which the password is read, sent and written, and packets with a wrong one.
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(ask("GetSettings", {}), "200");
        EXPECT_EQ(ask("ReloadCfg", {}), "200");
        EXPECT_EQ(ask("SetSettings", {"Comment=x", "Password=" + first}), "200");
    }
    EXPECT_GE(CountInMemory(agent.Pid(), tail), 1) << "the search finds what is in use";
    // A shorter one lies in the same buffer, a longer one in another.
    for (const std::string& next : {std::string("short"), std::string(300, '+')}) {
        EXPECT_EQ(ask("SetSettings", {"Password=" + next}), "200");
        target.password = next;
        EXPECT_EQ(ask("GetSettings", {}), "200");
        EXPECT_TRUE(WaitUntil([&] { return CountInMemory(agent.Pid(), tail) == 0; },
                              std::chrono::milliseconds(3000)))
            << CountInMemory(agent.Pid(), tail) << " copies beside " << next;
        EXPECT_EQ(ask("SetSettings", {"Password=" + first}), "200");
        target.password = first;
    }

    for (const auto& entry : fs::directory_iterator(agent.Dir().Path())) {
        std::string name = entry.path().filename();
        struct stat info {};
        ASSERT_EQ(stat(entry.path().c_str(), &info), 0);
        if (name.starts_with("verbose") || name.starts_with("log")) {
            std::string text = ReadFile(entry.path());
            EXPECT_NE(text, "") << name;
            EXPECT_EQ(text.find(tail), std::string::npos) << name;
            EXPECT_EQ(info.st_mode & 0137, 0u) << name;
        }
    }
    EXPECT_EQ(CommandLineOf(agent.Pid()).find(tail), std::string::npos);
    EXPECT_EQ(ask("QUIT", {}), "200");
    EXPECT_TRUE(agent.WaitForDaemonEnd());
}

}  // namespace
}  // namespace zot::test
