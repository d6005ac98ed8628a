// Settings, port switching and restart of a running agent.

#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <fstream>
#include <string>

#include "tests/support/agent_process.h"
#include "tests/support/process_info.h"

namespace zot::test {
namespace {

bool Answers(const client::Target& target, const std::string& line = "Service=0") {
    client::Answer answer;
    return TryAsk(target, "GetInfo", {}, &answer) &&
           std::find(answer.lines.begin(), answer.lines.end(), line) != answer.lines.end();
}

TEST(Management, SettingsChangeInMemoryAndInTheFile) {
    AgentProcess agent({.settings = "# a comment\nunknown=kept\nudp=yes\n"});
    client::Answer answer = agent.Ask(
        "SetSettings", {"Comment=new", "TCP=yes", "UDP=1", "port=5", "Timeout=7000",
                        "IPFilterAddr=10.0.0.1%0D%0A10.0.0.2", "IPFilterMarks=01", "no such=1"});
    EXPECT_EQ(answer.code, "200");
    EXPECT_TRUE(answer.lines.empty());
    answer = agent.Ask("GetSettings");
    for (const char* line : {"Comment=new", "Timeout=7000", "Enabled tests=0111111111111",
                             "IPFilterAddr=10.0.0.1%0D%0A10.0.0.2", "IPFilterMarks=01"}) {
        EXPECT_NE(std::find(answer.lines.begin(), answer.lines.end(), line), answer.lines.end())
            << line;
    }
    std::string file = ReadFile(agent.ConfigPath());
    // Lines that keep their own end keep it; rewritten and appended ones end in CR LF.
    for (const char* line : {"# a comment\n", "unknown=kept\n", "udp=1es\n", "tcp=0\r\n",
                             "filterlist=10.0.0.1 10.0.0.2\r\n", "comment=new\r\n"}) {
        EXPECT_NE(file.find(line), std::string::npos) << line;
    }
    EXPECT_EQ(agent.Ask("ReloadCfg").code, "200");
    EXPECT_TRUE(Answers(agent.Target(), "Comment=new"));
}

TEST(Management, ThePortMovesOrComesBack) {
    AgentProcess agent;
    client::Target moved = agent.Target();
    moved.port = FreePort();
    EXPECT_EQ(agent.Ask("SetSettings", {"Port=" + std::to_string(moved.port)}).code, "200");
    EXPECT_TRUE(WaitUntil([&] { return Answers(moved); }));
    EXPECT_FALSE(Answers(agent.Target()));

    AgentProcess other;  // its port is taken
    ASSERT_TRUE(TryAsk(moved, "SetSettings", {"Port=" + std::to_string(other.Port())}));
    std::string port = "Port=" + std::to_string(moved.port);
    auto count = [&](const char* line) { return Count(agent.Output(), line); };
    // The old port is served all the time.
    EXPECT_TRUE(WaitUntil([&] {
        EXPECT_TRUE(Answers(moved));
        return Answers(moved, port);
    }));
    for (const char* impossible : {"Port=0", "Port=70000"}) {
        ASSERT_TRUE(TryAsk(moved, "SetSettings", {impossible}));
        EXPECT_TRUE(WaitUntil([&] { return Answers(moved, port); }));
    }
    EXPECT_TRUE(WaitUntil([&] { return count("Return to original port\n") == 3; }));
    EXPECT_EQ(count("Error: cannot open new port for listening\n"), 3u);
    EXPECT_EQ(count("original port"), 3u);
    // The next start would fail with the other port.
    EXPECT_EQ(Count(ReadFile(agent.ConfigPath()), "port=" + std::to_string(moved.port) + "\r\n"),
              1u);
}

// The next program would start with what the file says.
TEST(Management, APortThatCannotBeOpenedOutlivesNoProgram) {
    for (const char* command : {"ReloadApp", "QUIT"}) {
        AgentProcess agent({.arguments = {"-d"}});
        agent.Ask("GetInfo");
        EXPECT_EQ(agent.Ask("SetSettings", {"Port=70000"}).code, "200");
        EXPECT_EQ(agent.Ask(command).code, "200");
        if (std::string_view(command) == "ReloadApp") {
            EXPECT_TRUE(WaitUntil([&] { return Answers(agent.Target(), "OpenedConnections=1"); }));
        } else {
            EXPECT_TRUE(agent.WaitForDaemonEnd());
        }
        EXPECT_EQ(Count(ReadFile(agent.ConfigPath()), "port=" + std::to_string(agent.Port())), 1u);
    }
}

TEST(Management, ARestartKeepsArgumentsAndNothingElse) {
    AgentProcess agent;
    pid_t pid = agent.Pid();
    const size_t descriptors = DescriptorsOf(pid).size();
    client::AgentConnection idle = agent.Connect();
    EXPECT_EQ(agent.Ask("ReloadApp").code, "200");
    EXPECT_EQ(UntilClose(idle), "");
    EXPECT_TRUE(WaitUntil([&] { return Answers(agent.Target(), "OpenedConnections=1"); }));
    EXPECT_EQ(agent.Pid(), pid);
    EXPECT_TRUE(WaitUntil([&] { return DescriptorsOf(pid).size() == descriptors; }));

    AgentProcess daemon({.arguments = {"-d"}});
    pid_t before = daemon.Pid();
    EXPECT_EQ(daemon.Ask("ReloadApp").code, "200");
    EXPECT_TRUE(WaitUntil([&] { return daemon.Pid() != 0 && daemon.Pid() != before; }));
    EXPECT_TRUE(WaitUntil([&] { return Answers(daemon.Target()); }));
}

TEST(Management, ARestartReapsWhatItsPredecessorLeft) {
    AgentProcess agent;
    std::string pidFile = agent.Dir() / "child";
    std::string command = "sh -c 'echo $$ >" + pidFile + "; sleep 3'";
    EXPECT_EQ(agent.Ask("TEST-ExternalPrg", {command, "", "", "-1"}).code, "200");
    const pid_t child = std::stoi(ReadFile(pidFile));
    EXPECT_EQ(agent.Ask("ReloadApp").code, "200");
    EXPECT_TRUE(WaitUntil([child] { return kill(child, 0) != 0; })) << "a process without an end";
}

TEST(Management, ARestartThatCannotLoadItsConfigurationTellsWhy) {
    AgentProcess agent({.arguments = {"-d"}, .settings = "badlogfile=bad.txt\n"});
    std::ofstream(agent.ConfigPath(), std::ios::app) << "password=\n";
    EXPECT_EQ(agent.Ask("ReloadApp").code, "200");
    EXPECT_TRUE(agent.WaitForDaemonEnd());
    std::string log;
    EXPECT_TRUE(WaitUntil([&] {
        log = ReadFile(agent.Dir() / "bad.txt");
        return log.find("Restart failed: ") != std::string::npos;
    }));
    EXPECT_NE(log.find("Password is not specified!"), std::string::npos) << log;
}

TEST(Management, AFailedRestartLeavesTheListenerClosed) {
    AgentProcess agent({.settings = "zotpath=/etc/hosts\n"});
    EXPECT_EQ(agent.Ask("ReloadApp").code, "200");
    EXPECT_TRUE(WaitUntil([&] {
        return agent.Output().find("Error: cannot start new instance\n") != std::string::npos;
    }));
    EXPECT_FALSE(Answers(agent.Target()));
    EXPECT_FALSE(agent.WaitForExit(std::chrono::milliseconds(0)).has_value());
}

}  // namespace
}  // namespace zot::test
