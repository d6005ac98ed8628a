// The detached agent: pid file, hang-up, end.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "base/owners.h"
#include "tests/support/agent_process.h"
#include "tests/support/file_tree.h"
#include "tests/support/process_info.h"

namespace zot::test {
namespace {

TEST(Daemon, DetachesAndHoldsItsPidFile) {
    AgentProcess agent({.arguments = {"-d"}, .awaitReady = false});
    EXPECT_EQ(agent.WaitForExit(), 0);
    // The one who started it can ask it.
    EXPECT_TRUE(TryAsk(agent.Target(), "GetInfo"));
    std::string output = agent.Output();
    // Every line once, although the process forked after most of them.
    EXPECT_EQ(output.find(" Application:"), output.rfind(" Application:"));
    EXPECT_EQ(output.substr(output.size() - 15), "Daemon started\n");
    pid_t pid = agent.Pid();
    ASSERT_GT(pid, 0);
    EXPECT_EQ(ReadFile(agent.PidFilePath()), std::to_string(pid) + "\n");
    EXPECT_EQ(getpgid(pid), pid);
    EXPECT_EQ(agent.Ask("GetInfo").code, "200");

    // Another agent with the same pid file runs without one, and leaves the file unchanged.
    AgentProcess second({.arguments = {"-d"},
                         .settings = "pidfile=" + agent.PidFilePath() + "\nbadlogfile=bad.txt\n",
                         .awaitReady = false});
    EXPECT_TRUE(WaitUntil([&] {
        return Count(ReadFile(second.Dir() / "bad.txt"),
                     "Failed to lock pid file " + agent.PidFilePath() + "\n") == 1;
    }));
    EXPECT_EQ(ReadFile(agent.PidFilePath()), std::to_string(pid) + "\n");
}

TEST(Daemon, StartsWithoutAnyStandardDescriptor) {
    AgentProcess agent(
        {.arguments = {"-d"}, .prefix = {"/bin/sh", "-c", "exec \"$@\" <&- >&- 2>&-", "sh"}});
    EXPECT_EQ(agent.Ask("GetInfo").code, "200");
    auto descriptors = DescriptorsOf(agent.Pid());
    for (int number : {0, 1, 2}) EXPECT_EQ(descriptors[number], "/dev/null") << number;
    EXPECT_EQ(agent.Ask("QUIT").code, "200");
    EXPECT_TRUE(agent.WaitForDaemonEnd());
}

TEST(Daemon, StartsAndServesWhateverItsStarterLeft) {
    TempDir lent;
    MakeFifo(lent / "pipeline");
    UniqueFd pipeline(open((lent / "pipeline").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    // Children that nobody waits for, its own descriptor limit, and a pipeline that waits for its
    // last writer.
    std::string shell =
        "trap '' CHLD; ulimit -Sn 200; exec 9>" + lent / "pipeline" + "; exec \"$@\"";
    AgentProcess agent({.arguments = {"-d"},
                        .settings = "delayforscripts=0\n",
                        .prefix = {"/bin/sh", "-c", shell, "sh"}});
    char byte = 0;
    EXPECT_EQ(read(pipeline.Get(), &byte, 1), 0) << "the end of the pipeline";
    EXPECT_EQ(agent.Ask("TEST-ExternalPrg", {"sh -c 'exit 7'", "", "", "9000"}).lines,
              std::vector<std::string>{"7"});
    auto limit = [&agent] {
        client::Answer answer = agent.Ask(
            "TEST-ShellScript", {"sh %script% ", "echo scriptres:`ulimit -n`", "0", "9", "0"});
        return answer.lines.empty() ? answer.code : answer.lines[0];
    };
    EXPECT_EQ(limit(), "scriptres:200");
    pid_t before = agent.Pid();
    EXPECT_EQ(agent.Ask("ReloadApp").code, "200");
    ASSERT_TRUE(WaitUntil([&] { return agent.Pid() != 0 && agent.Pid() != before; }));
    EXPECT_EQ(limit(), "scriptres:200") << "a new image gets what the old one was given";
}

TEST(Daemon, ThePidFileNeitherFollowsALinkNorHitsAnothersFile) {
    TempDir lent;
    std::string target = lent.Write("target", "precious");
    MakeLink(target, lent / "link");
    std::filesystem::create_hard_link(target, lent / "hard");
    for (const char* name : {"link", "hard"}) {
        AgentProcess agent({.arguments = {"-d"},
                            .settings = "pidfile=" + lent / name + "\nbadlogfile=bad.txt\n",
                            .awaitReady = false});
        EXPECT_TRUE(WaitUntil([&] {
            return ReadFile(agent.Dir() / "bad.txt").find("Failed to create pid file") !=
                   std::string::npos;
        })) << name;
        EXPECT_EQ(ReadFile(target), "precious");
    }
}

TEST(Daemon, ARequestThatReadsThePidFileDoesNotUnlockIt) {
    AgentProcess agent({.arguments = {"-d"}});
    pid_t pid = agent.Pid();
    for (const auto& [command, params] :
         {std::pair("TEST-FileHash", std::vector<std::string>{agent.PidFilePath(), "1", "0"}),
          {"TEST-FileCompare", {"1", agent.PidFilePath(), agent.PidFilePath(), "0", "0", "1"}}}) {
        EXPECT_EQ(agent.Ask(command, params).code, "200");
        EXPECT_EQ(agent.Pid(), pid) << command;
    }
}

TEST(Daemon, TellsOfATemporaryDirectoryThatOthersCanWriteTo) {
    TempDir lent;
    for (auto [mode, told] : {std::pair(0700, false), {0770, true}, {01777, true}}) {
        SetMode(lent.Path(), static_cast<unsigned>(mode));
        AgentProcess agent({.settings = "tmpdir=" + lent.Path() + "\n"});
        const std::string line =
            " Others can write to the temporary directory " + lent.Path() + "\n";
        EXPECT_EQ(agent.Output().find(line) != std::string::npos, told) << mode;
    }
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
    EXPECT_EQ(agent.Info("Comment"), "before");
    std::string config = ReadFile(agent.ConfigPath());
    agent.Dir().Write("zot.cfg", config + "comment=after\nport=1\n");
    agent.Signal(SIGHUP);
    EXPECT_TRUE(WaitUntil([&] { return agent.Info("Comment") == "after"; }));
    EXPECT_EQ(agent.Info("Port"), std::to_string(agent.Port()));
    agent.Dir().Write("zot.cfg", config + "comment=again\n");
    EXPECT_EQ(agent.Ask("ReloadCfg").code, "200");
    EXPECT_EQ(agent.Info("Comment"), "again");
}

TEST(Daemon, APidFileThatCannotBeMadeIsLoggedOnly) {
    TempDir logs;
    AgentProcess daemon(
        {.arguments = {"-d"},
         .settings = "pidfile=/no/such/folder/zot.pid\nbadlogfile=" + (logs / "bad.txt") + "\n",
         .awaitReady = false});
    EXPECT_TRUE(WaitUntil([&] {
        return Count(ReadFile(logs / "bad.txt"),
                     "Failed to create pid file /no/such/folder/zot.pid\n") == 1;
    }));
}

}  // namespace
}  // namespace zot::test
