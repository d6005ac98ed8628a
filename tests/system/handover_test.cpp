// From one program of the agent to the next: what a restart and an upgrade leave, and who takes
// over.

#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>

#include "base/md5.h"
#include "tests/support/agent_process.h"

namespace zot::test {
namespace {

using client::Deadline;

constexpr char kKey[] = "a session key";

bool Answers(const client::Target& target, const std::string& line = "Service=0") {
    client::Answer answer;
    return TryAsk(target, "GetInfo", {}, &answer) &&
           std::find(answer.lines.begin(), answer.lines.end(), line) != answer.lines.end();
}

// One connection that sends a new executable.
class Upgrade {
  public:
    explicit Upgrade(const AgentProcess& agent) : connection_(agent.Connect()), agent_(agent) {}

    std::string Begin(size_t size) {
        Send(client::BuildRequest(agent_.Target().password, kKey,
                                  "UpgradeCode\n" + std::to_string(size) + "\n\r"));
        return Receive();
    }
    void Send(std::string_view bytes) {
        std::string error;
        EXPECT_TRUE(connection_.Send(bytes, Deadline(kPatience), error)) << error;
    }
    std::string Receive() {
        std::string text;
        std::string error;
        EXPECT_TRUE(connection_.ReceiveReply(kKey, Deadline(kPatience), text, error)) << error;
        return text;
    }
    static std::string Trailer(std::string_view data) {
        auto digest = Md5Digest(data.data(), data.size());
        return client::Encrypt(kKey, {reinterpret_cast<char*>(digest.data()), digest.size()});
    }

  private:
    client::AgentConnection connection_;
    const AgentProcess& agent_;
};

// An agent whose executable, as far as restarts and upgrades know, is a file of the test's own.
class HandOver : public testing::Test {
  protected:
    static std::string Wrapper(const std::string& remark) {
        return "#!/bin/sh\n# " + remark + std::string(100, '.') +
               "\nexec " ZOT_BUILD_DIR "/zot \"$@\"\n";
    }
    HandOver() {
        home_.Write("zot", Wrapper("the first agent"));
        std::filesystem::permissions(Program(), std::filesystem::perms(0751));
    }
    std::string Program() const { return home_ / "zot"; }
    void Start(const std::string& mode, const std::string& settings = "") {
        agent_.emplace(AgentOptions{.arguments = {mode},
                                    .settings = "zotpath=" + Program() + "\n" + settings});
    }
    // The number that a script has written into the file; 0 as long as there is none.
    static pid_t PidIn(const std::string& path) {
        return static_cast<pid_t>(std::atoi(ReadFile(path).c_str()));
    }
    static bool Runs(pid_t pid) { return kill(pid, 0) == 0; }

    TempDir home_;
    std::optional<AgentProcess> agent_;
};

// A request in progress while the agent ends: its script and files go, and it gets no answer.
TEST_F(HandOver, WhatARequestStartedEndsWithTheAgent) {
    for (const char* command : {"QUIT", "ReloadApp"}) {
        Start("-d", "executeaction=1\n");
        const std::string script = home_ / "script.pid", action = home_ / "action.pid";
        auto sleeper = [](const std::string& file) {
            return "/bin/sh -c \"echo $$ >" + file + "; exec sleep 300\"";
        };
        EXPECT_EQ(agent_->Ask("ACT-ExternalCmd", {sleeper(action), "", "0", "-1"}).code, "200");
        client::AgentConnection request = agent_->Connect();
        const std::vector<std::string> params = {
            "%script% x", "#!/bin/sh%0D%0Aecho $$ >" + script + "; exec sleep 300", "", "0", "5"};
        std::string error, bytes;
        ASSERT_TRUE(
            request.Send(client::BuildRequest(agent_->Target().password, kKey,
                                              client::ComposeRequest("TEST-ShellScript", params)),
                         Deadline(kPatience), error));
        ASSERT_TRUE(WaitUntil([&] { return PidIn(script) != 0; }));
        EXPECT_EQ(agent_->Ask(command).code, "200");
        EXPECT_TRUE(request.ReceiveUntilClose(Deadline(kPatience), bytes, error)) << error;
        EXPECT_EQ(bytes, "");
        EXPECT_TRUE(WaitUntil([&] { return !Runs(PidIn(script)); })) << command;
        EXPECT_TRUE(Runs(PidIn(action))) << command;
        kill(PidIn(action), SIGKILL);
        for (const auto& entry : std::filesystem::directory_iterator(agent_->Dir().Path())) {
            EXPECT_FALSE(entry.path().filename().string().starts_with("tmp")) << entry.path();
        }
        if (std::string_view(command) == "ReloadApp") {
            EXPECT_TRUE(WaitUntil([&] { return Answers(agent_->Target()); }));
        }
        agent_.reset();
        std::filesystem::remove(script);
        std::filesystem::remove(action);
    }
}

TEST_F(HandOver, AnUpgradeThatGoesWrongLeavesTheAgentAsItWas) {
    Start("-i");
    AgentProcess& agent = *agent_;
    const std::string data(5000, 'x');
    {
        Upgrade corrupted(agent);
        EXPECT_EQ(corrupted.Begin(data.size()), "200\n\r");
        corrupted.Send(data + Upgrade::Trailer(data + "y"));
        EXPECT_EQ(corrupted.Receive(), "300\nWrong CRC\n\r");
    }
    {
        Upgrade first(agent);
        EXPECT_EQ(first.Begin(data.size()), "200\n\r");
        EXPECT_EQ(Upgrade(agent).Begin(data.size()), "302\n\r");
        first.Send(data.substr(0, 100));
    }
    // Cut off: nobody can upgrade until the agent is restarted.
    EXPECT_TRUE(WaitUntil([&] { return Answers(agent.Target(), "ActiveConnections=1"); }));
    EXPECT_EQ(Upgrade(agent).Begin(data.size()), "302\n\r");
    EXPECT_FALSE(std::filesystem::exists(agent.Dir() / "zot__.upd"));
    EXPECT_EQ(agent.Ask("ReloadApp").code, "200");
    EXPECT_TRUE(WaitUntil([&] { return Answers(agent.Target(), "OpenedConnections=1"); }));
    EXPECT_EQ(Upgrade(agent).Begin(100), "501\nWrong file parameter(s)\n\r");
    EXPECT_EQ(Upgrade(agent).Begin(101), "302\n\r");
    EXPECT_TRUE(Answers(agent.Target()));
}

}  // namespace
}  // namespace zot::test
