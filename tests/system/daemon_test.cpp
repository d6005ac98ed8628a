// The detached agent: pid file, hang-up, end.

#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "tests/support/agent_process.h"

namespace zot::test {
namespace {

bool Shows(const client::Answer& answer, const std::string& line) {
    return std::find(answer.lines.begin(), answer.lines.end(), line) != answer.lines.end();
}

TEST(Daemon, DetachesAndHoldsItsPidFile) {
    AgentProcess agent({.arguments = {"-d"}});
    EXPECT_EQ(agent.WaitForExit(), 0);
    std::string output = agent.Output();
    // Every line once, although the process forked after most of them.
    EXPECT_EQ(output.find(" Application:"), output.rfind(" Application:"));
    EXPECT_EQ(output.substr(output.size() - 15), "Daemon started\n");
    pid_t pid = agent.Pid();
    ASSERT_GT(pid, 0);
    EXPECT_EQ(ReadFile(agent.PidFilePath()), std::to_string(pid) + "\n");
    EXPECT_EQ(getpgid(pid), pid);
    EXPECT_EQ(agent.Ask("GetInfo").code, "200");

    // Another agent with the same pid file runs without one, and leaves the file as it is.
    AgentProcess second({.arguments = {"-d"},
                         .settings = "pidfile=" + agent.PidFilePath() + "\nbadlogfile=bad.txt\n",
                         .awaitReady = false});
    EXPECT_TRUE(WaitUntil([&] {
        return ReadFile(second.Dir() / "bad.txt")
                   .find("Failed to lock pid file " + agent.PidFilePath() + "\n") !=
               std::string::npos;
    }));
    EXPECT_EQ(ReadFile(agent.PidFilePath()), std::to_string(pid) + "\n");
}

TEST(Daemon, StartsWithoutAnyStandardDescriptor) {
    AgentProcess agent(
        {.arguments = {"-d"}, .prefix = {"/bin/sh", "-c", "exec \"$@\" <&- >&- 2>&-", "sh"}});
    EXPECT_EQ(agent.Ask("GetInfo").code, "200");
    std::string descriptors = "/proc/" + std::to_string(agent.Pid()) + "/fd/";
    if (!std::filesystem::exists(descriptors)) GTEST_SKIP() << "no /proc/PID/fd";
    for (const char* number : {"0", "1", "2"}) {
        EXPECT_EQ(std::filesystem::read_symlink(descriptors + number), "/dev/null") << number;
    }
    EXPECT_EQ(agent.Ask("QUIT").code, "200");
    EXPECT_TRUE(agent.WaitForDaemonEnd());
}

TEST(Daemon, QuitAnswersThenEndsAndRemovesThePidFile) {
    AgentProcess agent({.arguments = {"-d"}});
    client::Answer answer = agent.Ask("QUIT");
    EXPECT_EQ(answer.code, "200");
    EXPECT_EQ(answer.lines, std::vector<std::string>{"Ok"});
    EXPECT_TRUE(agent.WaitForDaemonEnd());
    EXPECT_FALSE(std::filesystem::exists(agent.PidFilePath()));
}

TEST(Daemon, HangupReadsTheConfigurationAgain) {
    AgentProcess agent({.arguments = {"-d"}, .settings = "comment=before\n"});
    EXPECT_TRUE(Shows(agent.Ask("GetInfo"), "Comment=before"));
    std::string config = ReadFile(agent.ConfigPath());
    agent.Dir().Write("zot.cfg", config + "comment=after\nport=1\n");
    agent.Signal(SIGHUP);
    EXPECT_TRUE(WaitUntil([&] { return Shows(agent.Ask("GetInfo"), "Comment=after"); }));
    EXPECT_TRUE(Shows(agent.Ask("GetInfo"), "Port=" + std::to_string(agent.Port())));
    agent.Dir().Write("zot.cfg", config + "comment=again\n");
    client::Answer answer = agent.Ask("ReloadCfg");
    EXPECT_EQ(answer.code, "200");
    EXPECT_TRUE(Shows(agent.Ask("GetInfo"), "Comment=again"));
}

TEST(Daemon, APidFileThatCannotBeMadeIsLoggedOnly) {
    AgentProcess agent;  // only lends its directory
    AgentProcess daemon({.arguments = {"-d"},
                         .settings = "pidfile=/no/such/folder/zot.pid\nbadlogfile=" +
                                     (agent.Dir() / "bad.txt") + "\n",
                         .awaitReady = false});
    EXPECT_TRUE(WaitUntil([&] {
        return ReadFile(agent.Dir() / "bad.txt")
                   .find("Failed to create pid file /no/such/folder/zot.pid\n") !=
               std::string::npos;
    }));
}

}  // namespace
}  // namespace zot::test
