// The client as an administrator and a monitoring system use it: the real zotq asks the real agent.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <regex>
#include <string>
#include <thread>

#include "client/upgrade_transfer.h"
#include "tests/support/agent_process.h"

namespace zot::test {
namespace {

struct Run {
    int status = -1;
    std::string out;  // both streams
};

Run Zotq(const AgentProcess& agent, const std::string& arguments) {
    std::string password = agent.Dir().Write("password", agent.Target().password);
    std::string command = "HOME=" + agent.Dir().Path() + " " ZOT_BUILD_DIR "/zotq -P " + password +
                          " -p " + std::to_string(agent.Port()) + " " + arguments + " 2>&1";
    Run run;
    FILE* pipe = popen(command.c_str(), "re");
    if (!pipe) return run;
    char buffer[4096];
    while (size_t got = fread(buffer, 1, sizeof buffer, pipe)) run.out.append(buffer, got);
    int status = pclose(pipe);
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return run;
}

void ExpectRun(const Run& run, int status, const std::string& pattern) {
    EXPECT_EQ(run.status, status) << run.out;
    EXPECT_TRUE(std::regex_match(run.out, std::regex(pattern))) << run.out;
}

TEST(Zotq, UpgradesARunningDaemonUnderLoad) {
    TempDir dir;
    std::filesystem::copy(ZOT_BUILD_DIR "/zot", dir / "zot");
    AgentProcess agent({.arguments = {"-d"}, .settings = "zotpath=" + (dir / "zot") + "\n"});
    auto answers = [&agent](const std::string& line) {
        client::Answer answer;
        TryAsk(agent.Target(), "GetInfo", {}, &answer);
        return std::find(answer.lines.begin(), answer.lines.end(), line) != answer.lines.end();
    };
    std::atomic<bool> stop{false};
    std::thread load([&] {
        while (!stop) answers("");
    });
    pid_t before = agent.Pid();
    // The executable under test with another name for itself.
    std::string name = "AgentName=VY Remote Monitoring Agent";
    std::string module = ReadFile(ZOT_BUILD_DIR "/zot");
    size_t at = module.find(name.substr(10));
    ASSERT_NE(at, std::string::npos);
    if (module.size() <= client::kMaxModuleSize) {
        name.replace(name.size() - 5, 5, "AGENT");
        module.replace(at, name.size() - 10, name.substr(10));
    } else {
        // Sanitizer builds with debugging information are too large for a transfer.
        module = "#!/bin/sh\nexec " ZOT_BUILD_DIR "/zot \"$@\" # " + std::string(5000, '#');
    }
    ExpectRun(Zotq(agent, "upgrade " + dir.Write("new", module)), 0, "200\nAgentVersion=1\\.36\n");
    EXPECT_TRUE(WaitUntil([&] { return agent.Pid() != 0 && agent.Pid() != before; }));
    EXPECT_TRUE(WaitUntil([&] { return answers(name); }));
    stop = true;
    load.join();
    EXPECT_EQ(ReadFile(dir / "zot"), module);
    // The script's last act is to remove itself.
    EXPECT_TRUE(WaitUntil([&] {
        return !std::filesystem::exists(agent.Dir() / "zotupd__.sh") &&
               !std::filesystem::exists(agent.Dir() / "zot__.upd");
    }));
}

TEST(ZotqPlugin, ChecksFilesAndTheSystem) {
    TempDir dir, scripts;
    dir.Write("one.txt", std::string(1000, 'x'));
    dir.Write("two.log", "");
    std::string digits = scripts.Write("digits", "123456789");
    std::string cpu = scripts.Write("cpu", "#!/bin/sh\necho 12.5\n");
    std::filesystem::permissions(cpu, std::filesystem::perms::owner_all);
    AgentProcess agent({.settings = "cpuusagescript=" + cpu +
                                    "\nproccntscript=" ZOT_SOURCE_DIR "/scripts/zot_proccnt.sh\n"});
    std::string port = std::to_string(agent.Port());
    struct Case {
        std::string arguments;
        int status;
        std::string pattern;
    } cases[] = {
        {"disk " + dir.Path(), 0,
         "DISK OK - .* used=[0-9.]+%;;;0;100 available=[0-9]+B;;;0;[0-9]+\n"},
        {"-c 0:0 disk " + dir.Path(), 2, "DISK CRITICAL - .*\n"},
        {"disk /no/such", 3, "DISK UNKNOWN - the agent answered 301: No such file or directory\n"},
        {"-w 999 size " + dir.Path(), 1, "SIZE WARNING - .* holds 1000 B \\| size=1000B;999;;0\n"},
        {"-w 2: files " + dir.Path() + " '*.txt'", 1, "FILES WARNING - 1 .*\\| files=1;2:;;0\n"},
        {"-w 5 age '" + dir.Path() + "/%newestfile%'", 0, "AGE OK - .*\\| age=0s;300\n"},
        {"age " + dir.Path() + "/three", 2, "AGE CRITICAL - .*: no such file or acess denied\n"},
        // The agent, and zotq and perhaps its shell with the name on their own command lines.
        {"-w 3 process " + agent.ConfigPath(), 0, "PROCESS OK - [23] .*\\| processes=[23];3;;0\n"},
        {"hash " + digits + " 873187033", 0, "HASH OK - .* is unchanged\n"},
        {"hash " + digits + " 25F9E794323B453885F5181F1B624D0B", 0, "HASH OK - .*\n"},
        {"hash " + digits + " " + std::string(64, '0'), 2,
         "HASH CRITICAL - .* has changed: 15e2b0d3c33891eb.*\n"},
        {"log " + digits + " 9", 0, "LOG OK - watching .* from now on \\| matches=0;;0;0\n"},
        {"cpu", 0, "CPU OK - CPU usage is 12.5% \\| cpu=12.5%;;;0;100\n"},
        {"tcp 127.0.0.1 " + port, 0, "TCP OK - .* \\| time=[0-9]+ms;;;0\n"},
        {"tcp 127.0.0.1 1", 2, "TCP CRITICAL - 127.0.0.1 port 1: .+\n"},
    };
    for (const Case& c : cases)
        ExpectRun(Zotq(agent, "--plugin " + c.arguments), c.status, c.pattern);
}

TEST(ZotqPlugin, RunsALocalScriptOverThere) {
    AgentProcess agent;
    std::string script = agent.Dir().Write(
        "script", "#!/bin/sh\necho \"got $*\"\n\necho 'scriptres: 7 jobs of $1'\necho 100%\n");
    ExpectRun(Zotq(agent, "--plugin -c 5 script " + script), 2,
              "SCRIPT CRITICAL - 7 jobs of \\$1 \\| result=7;;5\ngot *\nscriptres: .*\n100%\n");
    ExpectRun(Zotq(agent, "--plugin script " + script + " a b"), 0,
              "SCRIPT OK - 7 jobs of \\$1 \\| result=7\ngot a b\nscriptres: .*\n100%\n");
    std::string slow = agent.Dir().Write("slow", "#!/bin/sh\nexec sleep 60\n");
    ExpectRun(Zotq(agent, "-t 4 --plugin script " + slow), 3,
              "SCRIPT UNKNOWN - the agent answered 301: Script execution error: .*\n");
}

}  // namespace
}  // namespace zot::test
