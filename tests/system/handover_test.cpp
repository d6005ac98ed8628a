// From one program of the agent to the next: what a restart and an upgrade leave, and which program
// takes over.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "base/md5.h"
#include "tests/support/agent_process.h"
#include "tests/support/checkers.h"
#include "tests/support/fault_injection.h"
#include "tests/support/ordinary_user.h"

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
    // At another port than the agent's first one where `port` is not 0.
    explicit Upgrade(const AgentProcess& agent, uint16_t port = 0) : agent_(agent) {
        std::string error;
        EXPECT_TRUE(connection_.Open(agent.Target().host, port != 0 ? port : agent.Port(),
                                     Deadline(kPatience), error))
            << error;
    }

    std::string Begin(size_t size) {
        Send(agent_.Packet(kKey, "UpgradeCode\n" + std::to_string(size) + "\n\r"));
        return Receive();
    }
    void Send(std::string_view bytes) { test::Send(connection_, bytes); }
    std::string Receive() { return ReceiveReply(connection_, kKey); }
    static std::string Trailer(std::string_view data) {
        auto digest = Md5Digest(data.data(), data.size());
        return client::Encrypt(kKey, {reinterpret_cast<char*>(digest.data()), digest.size()});
    }

  private:
    client::AgentConnection connection_;
    const AgentProcess& agent_;
};

// For scripts: starts a command in a session of its own.
constexpr char kInOwnSession[] = "$(command -v setsid || echo /usr/sbin/daemon)";

// An agent whose executable, for restarts and upgrades, is a file of the test's own.
class HandOver : public testing::Test {
  protected:
    static std::string Wrapper(const std::string& remark) {
        return "#!/bin/sh\n# " + remark + std::string(100, '.') +
               "\nexec " ZOT_BUILD_DIR "/zot \"$@\"\n";
    }
    HandOver() {
        home_.Write("zot", Wrapper("the first agent"));
        if (geteuid() == 0 && chown(Program().c_str(), 12345, 0) == 0) owner_ = 12345;
        std::filesystem::permissions(Program(), std::filesystem::perms(0751));
    }
    std::string Program() const { return home_ / "zot"; }
    void Start(const std::string& mode, const std::string& settings = "",
               std::vector<std::string> environment = {}) {
        for (const std::string& variable : faults_.Environment()) environment.push_back(variable);
        agent_.emplace(
            AgentOptions{.arguments = {mode},
                         .settings = "zotpath=" + Program() + "\nbadlogfile=bad.txt\n" + settings,
                         .environment = environment});
    }
    void TransferModule(const std::string& module, uint16_t port = 0) {
        Upgrade upgrade(*agent_, port);
        ASSERT_EQ(upgrade.Begin(module.size()), "200\n\r");
        upgrade.Send(module + Upgrade::Trailer(module));
        ASSERT_EQ(upgrade.Receive(), "200\n\r");
    }
    // Makes the running agent differ from a fresh one.
    void AgeAgent() const {
        for (int i = 0; i < 2; ++i) agent_->Ask("GetInfo");
    }
    // The guard of this test's agent; 0 when there is none.
    pid_t Guard() const {
        const std::string title = "zot-upgrade-guard " + agent_->ConfigPath();
        std::unique_ptr<FILE, int (*)(FILE*)> list(popen("ps axww -o pid= -o args=", "r"), pclose);
        char line[1024];
        while (list != nullptr && std::fgets(line, sizeof line, list.get()) != nullptr) {
            if (std::string_view(line).find(title) != std::string_view::npos)
                return std::atoi(line);
        }
        return 0;
    }
    // Whether an agent answers that has had at most one other connection before: a new one. The one
    // that received the transfer has had more.
    bool FreshAgentAnswers(uint16_t port = 0) const {
        client::Target target = agent_->Target();
        if (port != 0) target.port = port;
        client::Answer answer;
        if (!TryAsk(target, "GetInfo", {}, &answer)) return false;
        auto isFresh = [](const std::string& line) {
            return line == "OpenedConnections=1" || line == "OpenedConnections=2";
        };
        return std::any_of(answer.lines.begin(), answer.lines.end(), isFresh);
    }
    void ExpectNothingLeft() {
        EXPECT_TRUE(WaitUntil([&] {
            return Guard() == 0 && !std::filesystem::exists(Program() + ".previous") &&
                   !std::filesystem::exists(Program() + ".upgrading") &&
                   !std::filesystem::exists(agent_->Dir() / "zot__.upd") &&
                   !std::filesystem::exists(agent_->Dir() / "zotupd__.sh");
        }));
    }
    size_t Failures() const {
        return Count(ReadFile(agent_->Dir() / "bad.txt"),
                     "Upgrade failed, previous agent started\n");
    }
    void ExpectProgram(const std::string& content) {
        EXPECT_EQ(ReadFile(Program()), content);
        struct stat status {};
        ASSERT_EQ(stat(Program().c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777, 0751u);
        EXPECT_EQ(status.st_uid, owner_);
    }
    void Stop() {
        EXPECT_EQ(agent_->Ask("QUIT").code, "200");
        EXPECT_TRUE(WaitUntil([&] { return !TryAsk(agent_->Target(), "GetInfo"); }));
        agent_.reset();
    }
    // The number that a script has written into the file; 0 as long as there is none.
    static pid_t PidIn(const std::string& path) {
        return static_cast<pid_t>(std::atoi(ReadFile(path).c_str()));
    }
    static bool Runs(pid_t pid) { return kill(pid, 0) == 0; }

    FaultInjection faults_;
    TempDir home_;
    uid_t owner_ = geteuid();
    std::optional<AgentProcess> agent_;
};

// A request in progress while the agent ends: its script and files go, and it gets no answer.
TEST_F(HandOver, WhatARequestStartedEndsWithTheAgent) {
    for (const char* command : {"QUIT", "ReloadApp", "SIGTERM"}) {
        Start("-d", "executeaction=1\n");
        const std::string script = home_ / "script.pid", action = home_ / "action.pid";
        auto sleeper = [](const std::string& file) {
            return "/bin/sh -c \"echo $$ >" + file + "; exec sleep 300\"";
        };
        EXPECT_EQ(agent_->Ask("ACT-ExternalCmd", {sleeper(action), "", "0", "-1"}).code, "200");
        client::AgentConnection request = agent_->Connect();
        const std::vector<std::string> params = {
            "%script% x", "#!/bin/sh%0D%0Aecho $$ >" + script + "; exec sleep 300", "", "0", "5"};
        Send(request, agent_->Packet(kKey, client::ComposeRequest("TEST-ShellScript", params)));
        ASSERT_TRUE(WaitUntil([&] { return PidIn(script) != 0; }));
        if (std::string_view(command) == "SIGTERM") {
            agent_->Signal(SIGTERM);
        } else {
            EXPECT_EQ(agent_->Ask(command).code, "200");
        }
        EXPECT_EQ(UntilClose(request), "");
        EXPECT_TRUE(WaitUntil([&] { return !Runs(PidIn(script)); })) << command;
        EXPECT_TRUE(Runs(PidIn(action))) << command;
        kill(PidIn(action), SIGKILL);
        for (const auto& entry : std::filesystem::directory_iterator(agent_->Dir().Path())) {
            EXPECT_FALSE(entry.path().filename().string().starts_with("tmp")) << entry.path();
        }
        if (std::string_view(command) == "ReloadApp") {
            EXPECT_TRUE(WaitUntil([&] { return Answers(agent_->Target()); }));
        } else {
            EXPECT_TRUE(agent_->WaitForDaemonEnd());
            EXPECT_FALSE(std::filesystem::exists(agent_->PidFilePath())) << command;
        }
        agent_.reset();
        std::filesystem::remove(script);
        std::filesystem::remove(action);
    }
}

TEST_F(HandOver, AnUpgradeIsFollowedByAnother) {
    for (const char* mode : {"-i", "-d"}) {
        Start(mode);
        for (const char* name : {"the second agent", "the third agent"}) {
            AgeAgent();
            TransferModule(Wrapper(name));
            EXPECT_TRUE(WaitUntil([&] { return FreshAgentAnswers(); })) << mode;
            ExpectProgram(Wrapper(name));
            EXPECT_EQ(Guard(), 0);
        }
        if (std::string_view(mode) == "-d") ExpectNothingLeft();
        EXPECT_EQ(Failures(), 0u);
        Stop();
    }
}

// Executables that never listen, each failing in its own way.
TEST_F(HandOver, AnUpgradeThatDoesNotStartIsUndone) {
    const std::string padding = "\n# " + std::string(100, '.') + "\n";
    const std::string old = ReadFile(Program());
    const struct {
        const char* mode;
        std::string module;
        bool hangs;
    } cases[] = {
        {"-d", std::string(5000, 'x'), false},
        {"-d",
         "\x7f"
         "ELF\x01\x01\x01" +
             std::string(200, '\0'),
         false},
        {"-i", "#!/bin/sh\nkill -SEGV $$" + padding, false},
        {"-d", "#!/bin/sh\nexit 0" + padding, false},
        {"-d", "#!/no/such/interpreter" + padding, false},
        {"-i", "#!/bin/sh\nexec sleep 300" + padding, true},
        {"-d", std::string("#!/bin/sh\nsleep 300 &\n") + kInOwnSession + " sleep 300 &" + padding,
         true},
    };
    for (const auto& c : cases) {
        Start(c.mode);
        AgeAgent();
        TransferModule(c.module);
        if (c.hangs) {
            ASSERT_TRUE(WaitUntil([&] { return ReadFile(Program()) == c.module; }));
            faults_->clockOffsetSeconds.fetch_add(31);
        }
        EXPECT_TRUE(WaitUntil([&] { return Failures() == 1; })) << c.module.substr(0, 40);
        EXPECT_TRUE(WaitUntil([&] { return FreshAgentAnswers(); })) << c.module.substr(0, 40);
        ExpectProgram(old);
        ExpectNothingLeft();
        Stop();
    }
}

// As with an immutable executable: the script removes and copies in vain, and starts it again.
TEST_F(HandOver, AnUpgradeThatReplacesNothingIsToldOf) {
    const std::string old = ReadFile(Program());
    for (const char* name : {"rm", "cp", "sleep"}) {
        home_.Write(
            name, "#!/bin/sh\ncase $* in */zot) exit 1 ;; 1) ;; *) exec /bin/rm \"$@\" ;; esac\n");
        std::filesystem::permissions(home_ / name, std::filesystem::perms(0755));
    }
    Start("-d", "", {"PATH=" + home_.Path() + ":/usr/bin:/bin"});
    AgeAgent();
    TransferModule(Wrapper("the second agent"));
    EXPECT_TRUE(WaitUntil([&] { return Failures() == 1; }));
    EXPECT_TRUE(WaitUntil([&] { return FreshAgentAnswers(); }));
    ExpectProgram(old);
    ExpectNothingLeft();
    Stop();
}

// An agent that does not know the guard is found where its file says, not where the old agent was.
TEST_F(HandOver, AnAgentFromBeforeThereWereGuardsIsTakenForGood) {
    Start("-i");
    const std::string module = "#!/bin/sh\nexec env -u ZOT_HANDOVER " ZOT_BUILD_DIR
                               "/zot \"$@\" #" +
                               std::string(100, '.');
    const uint16_t moved = FreePort();
    EXPECT_EQ(agent_->Ask("SetSettings", {"Port=" + std::to_string(moved)}).code, "200");
    client::Target target = agent_->Target();
    target.port = moved;
    ASSERT_TRUE(WaitUntil([&] { return Answers(target); }));
    TransferModule(module, moved);
    EXPECT_TRUE(WaitUntil([&] { return ReadFile(Program()) == module && Guard() == 0; }));
    EXPECT_EQ(Failures(), 0u);
    EXPECT_TRUE(FreshAgentAnswers(moved));
    ExpectProgram(module);
    EXPECT_TRUE(TryAsk(target, "QUIT"));
    EXPECT_EQ(agent_->WaitForExit(), 0);
    ExpectNothingLeft();
}

// It leaves the pipe of its starter before it listens, and need not be able to make its pid file.
TEST_F(HandOver, AnOlderAgentIsFoundHoweverItStarts) {
    std::string older = ReadFile(ZOT_BUILD_DIR "/zot");
    for (const std::string known : {"zot takes over: 1", "ZOT_HANDOVER="}) {
        size_t at = older.find(known);
        ASSERT_NE(at, std::string::npos);
        for (; at != std::string::npos; at = older.find(known, at)) older[at] = '-';
    }
    home_.Write("older", older);
    std::filesystem::permissions(home_ / "older", std::filesystem::perms(0755));
    const std::string module = std::string("#!/bin/sh\n") + kInOwnSession + " " +
                               (home_ / "older") + " \"$@\" & #" + std::string(100, '.') + "\n";
    for (const char* setting : {"", "pidfile=/no/such/folder/pid\n"}) {
        Start("-d");
        AgeAgent();
        agent_->Dir().Write("zot.cfg", ReadFile(agent_->ConfigPath()) + setting);
        TransferModule(module);
        EXPECT_TRUE(WaitUntil([&] { return ReadFile(Program()) == module && Guard() == 0; }));
        EXPECT_EQ(Failures(), 0u);
        EXPECT_TRUE(WaitUntil([&] { return FreshAgentAnswers(); }));
        ExpectProgram(module);
        Stop();
        home_.Write("zot", Wrapper("the first agent"));
    }
}

TEST_F(HandOver, WhoAsksTheNewAgentToEndIsObeyed) {
    Start("-d");
    AgeAgent();
    TransferModule(Wrapper("ends at once"));
    EXPECT_TRUE(WaitUntil([&] { return FreshAgentAnswers(); }));
    EXPECT_EQ(agent_->Ask("QUIT").code, "200");
    EXPECT_TRUE(agent_->WaitForDaemonEnd());
    ExpectNothingLeft();
    EXPECT_EQ(Failures(), 0u);
    ExpectProgram(Wrapper("ends at once"));
}

// A stop of the service reaches the guard: it starts nothing more, and the old file is back.
TEST_F(HandOver, AStopEndsTheGuardAndTheNewAgent) {
    if (kThreadChecker) GTEST_SKIP() << "the checker keeps signals from a forked child";
    const std::string old = ReadFile(Program());
    Start("-d");
    TransferModule("#!/bin/sh\necho $$ >" + (home_ / "new.pid") + "\nexec sleep 300 # " +
                   std::string(100, '.'));
    ASSERT_TRUE(WaitUntil([&] { return PidIn(home_ / "new.pid") != 0 && Guard() != 0; }));
    kill(Guard(), SIGTERM);
    EXPECT_TRUE(WaitUntil([&] { return !Runs(PidIn(home_ / "new.pid")); }));
    ExpectNothingLeft();
    ExpectProgram(old);
    EXPECT_EQ(Failures(), 0u);
    EXPECT_FALSE(TryAsk(agent_->Target(), "GetInfo"));
}

// Whoever can read the executable can lock it.
TEST_F(HandOver, AStrangersLockOnTheExecutableStopsNoUpgrade) {
    std::filesystem::permissions(home_.Path(), std::filesystem::perms(0755));
    Start("-d");
    UniqueFd stranger(open(Program().c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(flock(stranger.Get(), LOCK_EX), 0);
    AgeAgent();
    TransferModule(Wrapper("the second agent"));
    EXPECT_TRUE(WaitUntil([&] { return FreshAgentAnswers(); }));
    ExpectProgram(Wrapper("the second agent"));
    ExpectNothingLeft();
}

TEST_F(HandOver, AScriptThatCannotBeExecutedLeavesTheAgentInService) {
    Start("-d");
    const pid_t pid = agent_->Pid();
    faults_->execute.Fail(EACCES, 1);
    TransferModule(Wrapper("never"));
    EXPECT_TRUE(WaitUntil([&] {
        return ReadFile(agent_->Dir() / "bad.txt").find("Error: cannot start upgrading script\n") !=
               std::string::npos;
    }));
    EXPECT_TRUE(WaitUntil([&] { return Answers(agent_->Target()) && agent_->Pid() == pid; }));
    ExpectNothingLeft();
    ExpectProgram(Wrapper("the first agent"));
    // An exec of a file that is still open for writing is tried again, and the gate is open.
    faults_->execute.Fail(ETXTBSY, 5);
    AgeAgent();
    TransferModule(Wrapper("later"));
    EXPECT_TRUE(WaitUntil([&] { return FreshAgentAnswers(); }));
    EXPECT_NE(agent_->Pid(), pid);
    ExpectProgram(Wrapper("later"));
}

// Tries to take the port until it succeeds or the file exists; returns how often it succeeded.
std::string TakePort(uint16_t port, const std::string& stopFile) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    while (access(stopFile.c_str(), F_OK) != 0) {
        UniqueFd socket(::socket(AF_INET, SOCK_STREAM, 0));
        int on = 1;
        setsockopt(socket.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        if (bind(socket.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
            listen(socket.Get(), 1) == 0) {
            return "taken";
        }
    }
    return "kept";
}

TEST_F(HandOver, NobodyTakesThePortMeanwhile) {
    Start("-d", "zotpath=" ZOT_BUILD_DIR "/zot\n");
    std::filesystem::permissions(home_.Path(), std::filesystem::perms(0755));
    std::string result;
    std::thread stranger(
        [&] { result = AsOrdinaryUser([&] { return TakePort(agent_->Port(), home_ / "stop"); }); });
    for (int i = 0; i < 4; ++i) {
        const pid_t before = agent_->Pid();
        EXPECT_EQ(agent_->Ask("ReloadApp").code, "200");
        WaitUntil([&] { return agent_->Pid() != 0 && agent_->Pid() != before; });
    }
    home_.Write("stop", "");
    stranger.join();
    EXPECT_EQ(result, "kept");
    // Nor does the agent's own user by mistake.
    AgentProcess second({.arguments = {"-d"}, .port = agent_->Port(), .awaitReady = false});
    EXPECT_EQ(second.WaitForExit(), 4);
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
    EXPECT_TRUE(WaitUntil([&] { return !std::filesystem::exists(agent.Dir() / "zot__.upd"); }));
    EXPECT_EQ(agent.Ask("ReloadApp").code, "200");
    EXPECT_TRUE(WaitUntil([&] { return Answers(agent.Target(), "OpenedConnections=1"); }));
    EXPECT_EQ(Upgrade(agent).Begin(100), "501\nWrong file parameter(s)\n\r");
    EXPECT_EQ(Upgrade(agent).Begin(101), "302\n\r");
    EXPECT_TRUE(Answers(agent.Target()));
}

}  // namespace
}  // namespace zot::test
