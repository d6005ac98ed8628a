// The client as an administrator and a monitoring system use it: the real zotq asks the real agent.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <memory>
#include <regex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

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
    // The executable under test with a different name for itself.
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
        // Without a list of processes the agent counts: itself, and perhaps the shell of the test.
        {"-w 2 process " + agent.ConfigPath(), 0, "PROCESS OK - [12] .*\\| processes=[12];2;;0\n"},
        {"size " + dir.Path() + "/gone", 2, "SIZE CRITICAL - .*no such file or folder\n"},
        {"agent", 0, "AGENT OK - zot 1\\.36 on .* \\| time=[0-9.]+ms;;;0 connections=[0-9]+c .*\n"},
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

TEST(ZotqPlugin, CountsNoProcessOfTheQuestionAndRunsNoName) {
    AgentProcess agent({.settings = "proccntscript=" ZOT_SOURCE_DIR "/scripts/zot_proccnt.sh\n"
                                    "proclistscript=" ZOT_SOURCE_DIR "/scripts/zot_proclist.sh\n"});
    ExpectRun(Zotq(agent, "--plugin process " + agent.ConfigPath()), 0, "PROCESS OK - 1 .*\n");
    ExpectRun(Zotq(agent, "--plugin process nosuchprocess"), 2, "PROCESS CRITICAL - 0 .*\n");
    ExpectRun(Zotq(agent, "--plugin process =nosuchprocess"), 2, "PROCESS CRITICAL - 0 .*\n");
    // Also by the count of an agent that has no list.
    AgentProcess counting(
        {.settings = "proccntscript=" ZOT_SOURCE_DIR "/scripts/zot_proccnt.sh\n"});
    for (const AgentProcess* asked : {&agent, &counting}) {
        std::string made = asked->Dir() / "made";
        Zotq(*asked, "--plugin process 'x; touch " + made + "'");
        EXPECT_FALSE(std::filesystem::exists(made));
    }
}

TEST(ZotqPlugin, AScriptThatFailedIsCriticalAndGetsItsArgumentsWhole) {
    AgentProcess agent;
    std::string script =
        agent.Dir().Write("script", "#!/bin/sh\nfor i; do echo \"<$i>\"; done\nexit $1\n");
    ExpectRun(Zotq(agent, "--plugin script " + script + " 3 'a  b' \"it's\" '\"'"), 2,
              "SCRIPT CRITICAL - <\"> \\(the script failed with 3\\)\n<3>\n<a  b>\n<it's>\n<\">\n");
    ExpectRun(Zotq(agent, "script " + script + " 0 'a  b'"), 0, "<0>\n<a  b>\n");
}

// Hosts that are all this one.
std::string ListOf(const std::vector<std::pair<std::string, const AgentProcess*>>& hosts) {
    std::string list;
    for (const auto& [name, agent] : hosts) {
        list += name + ":" + std::to_string(agent->Port()) + " addr=127.0.0.1 password=" +
                agent->Dir().Write("password", agent->Target().password) + "\n";
    }
    return list;
}

TEST(ZotqFleet, WaitsForDescriptorsInsteadOfFailing) {
    AgentProcess agent;
    TempDir dir;
    std::vector<std::pair<std::string, const AgentProcess*>> hosts;
    for (int i = 0; i < 60; ++i) hosts.emplace_back("h" + std::to_string(i), &agent);
    std::string list = dir.Write("list", ListOf(hosts));
    std::string command = "sh -c 'ulimit -Hn 40; exec " ZOT_BUILD_DIR "/zotq --hosts " + list +
                          " --fields status status' 2>&1";
    FILE* pipe = popen(command.c_str(), "re");
    ASSERT_TRUE(pipe);
    int good = 0;
    char line[256];
    while (fgets(line, sizeof line, pipe)) good += std::string(line) == "ok\n";
    EXPECT_EQ(pclose(pipe), 0);
    EXPECT_EQ(good, 60);
}

TEST(ZotqFleet, RollsOutInBatchesAndGoesOnWhereItStopped) {
    TempDir dir;
    std::vector<std::unique_ptr<AgentProcess>> agents;
    std::vector<std::pair<std::string, const AgentProcess*>> hosts;
    for (const char* name : {"web1", "web2", "db1"}) {
        std::string program = dir / name;
        std::filesystem::copy(ZOT_BUILD_DIR "/zot", program);
        bool closed = hosts.size() == 2;
        agents.push_back(std::make_unique<AgentProcess>(
            AgentOptions{.arguments = {"-d"},
                         .settings = "zotpath=" + program + "\nbadlogfile=" + program + ".log" +
                                     (closed ? "\nallowupdates=0\n" : "\n")}));
        hosts.emplace_back(name, agents.back().get());
    }
    std::string module = "#!/bin/sh\nexec " ZOT_BUILD_DIR "/zot \"$@\" # " + std::string(200, '#');
    std::string file = dir.Write("new", module), list = dir / "rollout";
    std::string arguments = "--hosts " + dir.Write("list", ListOf(hosts)) +
                            " upgrade --canary web2 --batch 1 --list " + list + " " + file;
    ExpectRun(Zotq(*agents[0], arguments + " --dry-run"), 0,
              "plan: web2 \\| 1, 1  \\(3 hosts\\)\n");
    ExpectRun(Zotq(*agents[0], arguments), 1,
              "plan: .*\ncanary   web2  1\\.36 after [0-9.]+ s\nbatch 1  web1  1\\.36 after .* s\n"
              "batch 2  0/1\n         db1: the agent answered 600: Operation is not allowed\n"
              "upgraded 2, failed 1 \\(db1\\), untouched 0; list in .*\n");
    EXPECT_EQ(ReadFile(dir / "web1"), module);
    EXPECT_NE(ReadFile(dir / "db1"), module);
    pid_t before = agents[0]->Pid();
    ExpectRun(Zotq(*agents[0], arguments), 1,
              "already upgraded with this file: 2 by .*\nplan: 1  \\(1 host\\)\nbatch 1  0/1\n"
              "         db1: .*\nupgraded 0, failed 1 \\(db1\\), untouched 0; list in .*\n");
    EXPECT_EQ(agents[0]->Pid(), before) << "nobody is upgraded twice";

    // Its log of failures does not exist before.
    std::string broken = dir.Write("broken", "#!/bin/sh\nexit 1\n" + std::string(200, '#'));
    ExpectRun(Zotq(*agents[0],
                   "--hosts " + dir / "list" + " -H web1 upgrade --list " + list + " " + broken),
              3,
              "plan: 1  \\(1 host\\)\nbatch 1  0/1\n"
              "         web1: the new agent did not start, and the previous one is back\n"
              "upgraded 0, failed 1 \\(web1\\), untouched 0; list in .*\n");
}

}  // namespace
}  // namespace zot::test
