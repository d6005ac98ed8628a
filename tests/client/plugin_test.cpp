#include "client/plugin.h"

#include <gtest/gtest.h>

#include "tests/client/fake_agent.h"
#include "tests/support/temp_dir.h"

namespace zot::client {
namespace {

// A run of the plugin against an agent that sends this reply.
struct PluginRun : FakeAgent, ProgramRun {
    PluginRun(const std::string& reply, const std::string& line)
        : FakeAgent({reply + "\r"}), ProgramRun(Words("--plugin|" + PortOption() + "|" + line)) {}
};

TEST(Plugin, EachCheckSendsItsParameters) {
    const std::pair<std::string, const char*> cases[] = {
        {"disk|/var", "TEST-UNC\n/var\n\r"},
        {"files|/a|*.b", "TEST-CountFiles\n/a\n*.b\n0\n0\n0\n0\n0\n0\n0\n0\n1\n\r"},
        {"age|/a", "TEST-FileExists\n/a\n0\n0\n0\n0\n0\n1\n\r"},
        {"hash|/a|" + std::string(32, 'A'), "TEST-FileHash\n/a\n1\n0\n\r"},
        {"hash|/a|873187033", "TEST-FileHash\n/a\n0\n0\n\r"},
        {"cpu", "TEST-CPU\n\r"},
    };
    for (const auto& [line, request] : cases) {
        EXPECT_EQ(PluginRun("200\n", line).Requests(), std::vector<std::string>{request});
    }
}

TEST(Plugin, EachCheckJudgesTheReply) {
    struct Case {
        std::string line, reply;
        int status;
        const char* out;
    } cases[] = {
        {"-w|80|-c|90|disk|/var", "200\n  4000\n  1000\n   600\n0\n", kWarning,
         "DISK WARNING - /var is 83.33% full, 600 B of 3.9 KiB available | "
         "used=83.333333%;80;90;0;100 available=600B;;;0;4000\n"},
        {"disk|/proc", "200\n     0\n     0\n     0\n0\n", kOk,
         "DISK OK - /proc is 0% full, 0 B of 0 B available | "
         "used=0%;;;0;100 available=0B;;;0;0\n"},
        {"size|/a", "200\n  1536\n", kOk, "SIZE OK - /a holds 1.5 KiB | size=1536B;;;0\n"},
        {"-c@0:0|files|/a|*.b", "200\n0\n", kCritical,
         "FILES CRITICAL - 0 files *.b in /a | files=0;;@0;0\n"},
        {"-w|10|-c|~:20|age|/a", "200\n     5\n01012020000000\n01012020000000\n/a\nmin\n12\n",
         kWarning, "AGE WARNING - /a is 12 minutes old | age=720s;600;~:1200\n"},
        {"hash|/a|" + std::string(32, 'A'), "200\n" + std::string(32, 'a') + "\n", kOk,
         "HASH OK - /a is unchanged\n"},
        {"hash|/a|873187033", "200\n1\n", kCritical, "HASH CRITICAL - /a has changed: 1\n"},
        {"hash|/a|1", "301\nRead error\n", kUnknown,
         "HASH UNKNOWN - the agent answered 301: Read error\n"},
        {"process|sshd", "200\n0\n", kCritical,
         "PROCESS CRITICAL - 0 processes sshd | processes=0;;1:;0\n"},
        {"-w|5|process|sshd", "200\n0\n", kOk,
         "PROCESS OK - 0 processes sshd | processes=0;5;;0\n"},
        {"-c|90|cpu", "200\n97.2500\n", kCritical,
         "CPU CRITICAL - CPU usage is 97.25% | cpu=97.25%;;90;0;100\n"},
        {"cpu", "200\nnan\n", kUnknown, "CPU UNKNOWN - not a number in the agent's reply: nan\n"},
        {"cpu", "600\ntest is | not allowed\n", kUnknown,
         "CPU UNKNOWN - the agent answered 600: test is / not allowed\n"},
        {"cpu", "200\n", kUnknown, "CPU UNKNOWN - the agent's reply is too short\n"},
        {"tcp|db|5432", "301\nTimeout\n0\n", kCritical, "TCP CRITICAL - db port 5432: Timeout\n"},
        {"tcp|db|1", "301\nOperation now in progress\n-6\n", kCritical,
         "TCP CRITICAL - db port 1: connecting failed (Operation now in progress)\n"},
    };
    for (const Case& c : cases) {
        PluginRun run(c.reply, c.line);
        EXPECT_EQ(run.status, c.status) << run.out;
        EXPECT_EQ(run.out, c.out);
        EXPECT_EQ(run.err, "");
    }
}

TEST(Plugin, AFolderThatIsGoneIsCriticalAndNotWalkedAround) {
    PluginRun gone("301\nno such file or acess denied\n", "size|/a/b");
    EXPECT_EQ(gone.status, kCritical);
    EXPECT_EQ(gone.out, "SIZE CRITICAL - the agent answered 301: no such file or folder\n");
    EXPECT_EQ(gone.Requests().size(), 1U);
}

TEST(Plugin, TheAgentItselfAndWhatItsSilenceMeans) {
    PluginRun run(
        "200\nAgentVersion=1.36\nOpenedConnections=4711\nActiveConnections=1\n"
        "FailedConnections=2\nRunningOS=Linux 6.1.0 #1\n",
        "agent");
    EXPECT_EQ(run.status, kOk) << run.out;
    EXPECT_TRUE(run.out.starts_with("AGENT OK - zot 1.36 on Linux 6.1 answers in ")) << run.out;
    EXPECT_NE(run.out.find(";0 connections=4711c active=1 refused=2c\n"), std::string::npos);
    for (const auto& [state, status] : {std::pair("critical", kCritical), std::pair("ok", kOk)}) {
        ProgramRun silent({"--plugin", "-p1", "--unreachable", state, "agent"});
        EXPECT_EQ(silent.status, status) << silent.out;
        EXPECT_NE(silent.out.find("cannot connect"), std::string::npos);
    }
}

TEST(Plugin, TcpLeavesTheAgentTimeToReply) {
    PluginRun good("200\n    12\n\n", "-t|3|tcp|db|5432");
    EXPECT_EQ(good.out, "TCP OK - db port 5432 answers in 12 ms | time=12ms;;;0\n");
    int limit = 0;
    ASSERT_EQ(sscanf(good.Requests()[0].c_str(), "TEST-TCP\ndb\n5432\n%d", &limit), 1);
    EXPECT_TRUE(limit > 1000 && limit <= 2500) << limit;
    EXPECT_TRUE(good.Requests()[0].ends_with("\n\n0\n\r"));
}

TEST(Plugin, ScriptShowsItsResultLineAndItsOutput) {
    test::TempDir dir;
    std::string script = dir.Write("s", "#!/bin/sh\necho x\n");
    PluginRun run("200\nscriptres: queue 7 | x\nzotq-exit:0%0D%0Aa%0D%0Ab|c%0D%0A\n",
                  "-t|20|-c|5|script|" + script + "|a b|c\"d");
    EXPECT_EQ(run.status, kCritical);
    EXPECT_EQ(run.out, "SCRIPT CRITICAL - queue 7 / x | result=7;;5\na\nb/c\n");
    std::string request = run.Requests()[0];
    EXPECT_NE(request.find("\"%script%\" %params%\n#!/bin/sh%0Aecho x%0A\n\"a b\" 'c\"d'\n"),
              std::string::npos)
        << request;
    int seconds = 0, lines = 0;
    size_t numbers = request.find("'c\"d'\n") + 6;
    EXPECT_EQ(sscanf(request.c_str() + numbers, "%d\n%d", &seconds, &lines), 2);
    EXPECT_TRUE(seconds > 10 && seconds <= 18) << seconds;
    EXPECT_EQ(lines, 21);

    PluginRun wordy("200\nfine\nfine%0D%0A\n", "script|" + script);
    EXPECT_EQ(wordy.out, "SCRIPT OK - fine\nfine\n") << "from an agent that does not tell the end";
    PluginRun failed("200\nfine\nzotq-exit:3%0D%0Afine%0D%0A\n", "script|" + script);
    EXPECT_EQ(failed.status, kCritical);
    EXPECT_EQ(failed.out, "SCRIPT CRITICAL - fine (the script failed with 3)\nfine\n");
    PluginRun silent("200\nzotq-exit:0\nzotq-exit:0%0D%0A\n", "script|" + script);
    EXPECT_EQ(silent.out, "SCRIPT OK - the script printed nothing\n");
    EXPECT_EQ(PluginRun("200\nfine\n\n", "-w1|script|" + script).status, kUnknown);
}

TEST(Plugin, WhatCannotBeAskedIsUnknownOnStandardOutput) {
    test::TempDir dir;
    auto expectUnknown = [](const std::string& line) {
        PluginRun run("200\n1\n2\n3\n4\n", line);
        EXPECT_EQ(run.status, kUnknown) << line;
        EXPECT_NE(run.out.find(" UNKNOWN - "), std::string::npos) << run.out;
        EXPECT_TRUE(run.Requests().empty()) << line;
    };
    for (const char* line : {"", "nothing", "disk", "disk|", "disk| /var", "disk|/a%0Ab",
                             "disk|\xC3\xA4/b", "cpu|extra", "-w|x|cpu", "-x|cpu", "--json|cpu",
                             "-w1|hash|/a|12", "hash|/a|12ab", "hash|/a|12345678901", "hash|/a|00",
                             "hash|/a|4294967296", "--hold|5|cpu", "--unreachable|bad|cpu"}) {
        expectUnknown(line);
    }
    for (const std::string& path : {dir / "missing", dir.Path(), dir.Write("empty", "\n\n")}) {
        expectUnknown("script|" + path);
    }
    std::string script = "script|" + dir.Write("good", "#!/bin/sh\n");
    expectUnknown(script + "|both\"kinds'of quotes");
    expectUnknown(script + "|" + std::string(601, 'x'));
    std::string many = script;
    for (int i = 0; i < 20; ++i) many += "|x";
    expectUnknown(many);
    EXPECT_EQ(ProgramRun({"--plugin", "cpu"}, {}).status, kUnknown);
    ProgramRun refused({"--plugin", "-p1", "-t1", "cpu"});
    EXPECT_EQ(refused.status, kUnknown);
    EXPECT_TRUE(refused.out.starts_with("CPU UNKNOWN - cannot connect")) << refused.out;
}

}  // namespace
}  // namespace zot::client
