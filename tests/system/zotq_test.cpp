// The client as an administrator and a monitoring system use it: the real zotq asks the real agent.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <string>

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

TEST(Zotq, ShowsAndChangesSettings) {
    AgentProcess agent;
    ExpectRun(Zotq(agent,
                   "set Comment='rack 7' TCP=0 IPFilterAddr=10.0.0.1%0D%0A10.0.0.2 "
                   "IPFilterMarks=01"),
              0, "200\n");
    std::string out = Zotq(agent, "settings").out;
    for (const char* line :
         {"\nComment            rack 7\n", "\nAvailable tests    TCP                off\n",
          "\nPassword           ********\n",
          "\nIPFilterAddr       10.0.0.1  off\n                   10.0.0.2  on\n"}) {
        EXPECT_NE(out.find(line), std::string::npos) << out;
    }
    EXPECT_NE(ReadFile(agent.ConfigPath()).find("comment=rack 7\r\n"), std::string::npos);
    EXPECT_EQ(Zotq(agent, "set comment=lost").status, 2);
}

TEST(Zotq, UpgradesTheAgent) {
    TempDir dir;
    std::filesystem::copy(ZOT_BUILD_DIR "/zot", dir / "zot");
    AgentOptions options;
    options.arguments = {"-d"};
    options.settings = "zotpath=" + (dir / "zot") + "\n";
    AgentProcess agent(options);
    pid_t before = agent.Pid();
    // A script fits whatever the build's size: sanitizers make executables too large.
    std::string module = "#!/bin/sh\nexec " ZOT_BUILD_DIR "/zot \"$@\" # " + std::string(5000, '#');
    ExpectRun(Zotq(agent, "upgrade " + dir.Write("new", module)), 0, "200\nAgentVersion=1\\.36\n");
    EXPECT_EQ(ReadFile(dir / "zot"), module);
    EXPECT_TRUE(WaitUntil([&] { return agent.Pid() != 0 && agent.Pid() != before; }));
}

TEST(ZotqPlugin, ChecksFilesAndTheSystem) {
    TempDir dir, scripts;
    dir.Write("one.txt", std::string(1000, 'x'));
    dir.Write("two.log", "");
    std::string cpu = scripts.Write("cpu", "#!/bin/sh\necho 12.5\n");
    std::filesystem::permissions(cpu, std::filesystem::perms::owner_all);
    AgentOptions options;
    options.settings =
        "cpuusagescript=" + cpu + "\nproccntscript=" ZOT_SOURCE_DIR "/scripts/zot_proccnt.sh\n";
    AgentProcess agent(options);
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
        {"cpu", 0, "CPU OK - CPU usage is 12.5% \\| cpu=12.5%;;;0;100\n"},
        {"tcp 127.0.0.1 " + port, 0, "TCP OK - .* \\| time=[0-9]+ms;;;0\n"},
        {"tcp 127.0.0.1 1", 2, "TCP CRITICAL - 127.0.0.1 port 1: .+\n"},
    };
    for (const Case& c : cases)
        ExpectRun(Zotq(agent, "--plugin " + c.arguments), c.status, c.pattern);
}

TEST(ZotqPlugin, TellsChangedFilesByTheirDigest) {
    AgentProcess agent;
    std::string file = agent.Dir().Write("data", "123456789");
    std::string hash = "--plugin hash " + file + " ";
    ExpectRun(Zotq(agent, hash + "873187033"), 0, "HASH OK - .* is unchanged\n");
    ExpectRun(Zotq(agent, hash + "25F9E794323B453885F5181F1B624D0B"), 0, "HASH OK - .*\n");
    ExpectRun(Zotq(agent, hash + std::string(64, '0')), 2,
              "HASH CRITICAL - .* has changed: 15e2b0d3c33891eb.*\n");
    ExpectRun(Zotq(agent, "--plugin hash " + file + ".gone 1"), 2,
              "HASH CRITICAL - the agent answered 301: File doesn`t exist\n");
}

TEST(ZotqPlugin, WatchesALogFromRunToRun) {
    AgentProcess agent;
    std::string log = agent.Dir() / "app.log";
    std::string check = "--plugin log " + log + " error";
    auto append = [&](const std::string& text) { std::ofstream(log, std::ios::app) << text; };
    auto expectNew = [&](int count) {
        std::string number = std::to_string(count);
        ExpectRun(Zotq(agent, check), count > 0 ? 2 : 0,
                  "LOG [A-Z]+ - " + number + " new lines with 'error' in .* matches=" + number +
                      ";;0;0\n");
    };
    ExpectRun(Zotq(agent, check), 2, "LOG CRITICAL - the agent answered 301: File .*\n");
    append("");
    ExpectRun(Zotq(agent, check), 0, "LOG OK - watching .* from now on \\| matches=0;;0;0\n");
    append("error: the first line of an empty log\nfine\n");
    expectNew(1);
    expectNew(0);
    append("ERROR\nfine\nan error | here\nerror in a line without an en");
    ExpectRun(Zotq(agent, check), 2, "LOG CRITICAL - 2 .*, the last: an error / here \\| .*\n");
    append("d\n");
    expectNew(1);
    std::filesystem::resize_file(log, 0);  // rotated by copying
    append("error\nerror\nerror\n");
    expectNew(3);
    std::filesystem::resize_file(log, 0);
    expectNew(0);
    append("error after a look at the empty log\n");
    expectNew(1);
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
