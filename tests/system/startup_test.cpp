// What an operator sees when the agent starts, line by line, and how it ends when it cannot.

#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "commands/agent_info.h"
#include "tests/support/agent_process.h"
#include "tests/support/fault_injection.h"

namespace zot::test {
namespace {

const std::string kRule(61, '-');
const std::string kBanner = kRule +
                            "\n Application:  ZOT (Remote Monitoring Agent for Tarnveil)\n"
                            " Version:      " +
                            std::string(kAgentVersion) +
                            " for FreeBSD\n"
                            " Developer:    The zot developers\n"
                            " Web:          https://zot.example.org\n"
                            " E-mail:       zot@example.org\n" +
                            kRule + "\nCommand line checking .. ";
const std::string kUsage =
    "\n\n Usage: zot [-d|-i] [-v|-vd] [-p <port>] <cfg_file>\n"
    "  -d        - daemon mode (default)\n"
    "  -i        - interactive mode\n"
    "  -v        - verbose mode\n"
    "  -vd       - verbose debugging mode\n"
    "  -p <port> - overrides TCP port number specified in cfg_file\n"
    "  cfg_file  - obligatory parameter, path to configuration file\n"
    "\n"
    " Examples:\n"
    "  zot -i -v -p 1055 /etc/zot/zot.cfg\n"
    "  zot -d ~/zot/zot.cfg\n"
    "\n";
const std::string kBadParameter = "Error\nInvalid or missed command line parameter";
const std::string kBadPort = "Error\nInvalid port number";
const std::string kChecks =
    "Basic encyption checking .. Ok\n"
    "ZOT encyption checking .. Ok\n"
    "Sock testing .. Ok\n";

// Runs the agent with only these arguments.
std::string RunToExit(std::vector<std::string> arguments, int expectedCode) {
    // The shell drops the configuration file that comes after the arguments.
    std::string line = "exec \"$0\"";
    for (const std::string& argument : arguments) line += " '" + argument + "'";
    AgentProcess agent({.arguments = {}, .prefix = {"/bin/sh", "-c", line}, .awaitReady = false});
    EXPECT_EQ(agent.WaitForExit(), expectedCode) << line;
    return agent.Output();
}

TEST(Startup, CommandLineErrorsPrintTheUsage) {
    const std::vector<std::vector<std::string>> incomplete = {
        {}, {"-i"}, {"-d"}, {"-v"}, {"-i", "-v"}, {"-d", "-v", "-vd"}, {"-p"}, {"-p", "1055"}};
    for (const auto& arguments : incomplete) {
        EXPECT_EQ(RunToExit(arguments, 1), kBanner + kBadParameter + kUsage);
    }
    for (const char* port : {"0", "x", "70000", "65536", "-1", ""}) {
        EXPECT_EQ(RunToExit({"-i", "-p", port, "a.cfg"}, 1), kBanner + kBadPort + kUsage) << port;
    }
}

TEST(Startup, WhatStandsWhereAnOptionDoesNotIsTheConfigurationFile) {
    auto unreadable = [](const std::string& path) {
        return kBanner + "Ok\nSettings checking .. Error\nCannot open configuration file '" + path +
               "'\nPlease check '" + path + "' file\n\n";
    };
    EXPECT_EQ(RunToExit({"-d", "-v", "-vd", "-p", "1055", "/no/a.cfg"}, 1),
              unreadable("/no/a.cfg"));
    EXPECT_EQ(RunToExit({"-v", "-i", "ignored"}, 1), unreadable("-i"));
    EXPECT_EQ(RunToExit({"/no/" + std::string(600, 'x')}, 1),
              unreadable("/no/" + std::string(507, 'x')));
}

TEST(Startup, AnUnusableConfigurationEndsTheStart) {
    TempDir dir;
    std::string path = dir.Write("empty.cfg", "# nothing\n");
    EXPECT_EQ(RunToExit({"-i", path}, 1),
              kBanner +
                  "Ok\nSettings checking .. Error\nFilterMarks has less items than FilterList"
                  "  TCP post is not specified!\n  Password is not specified!\n"
                  "  Full path to the agent is not specified!\n\nPlease check '" +
                  path + "' file\n\n");
}

TEST(Startup, AnInteractiveStartShowsEveryStep) {
    AgentProcess agent({.settings = "filterlist=10.0.0.1\nfiltermarks=0\n"});
    std::string expected = kBanner + "Ok\nSettings checking .. Ok\nCPU testing .. Ok\n" + kChecks;
    std::string output = agent.Output();
    EXPECT_EQ(output.substr(0, expected.size()), expected);
    // [zot][12:34:56]<tab> zot<tab><tab> Listening...
    std::string line = output.substr(expected.size());
    EXPECT_EQ(line.substr(0, 6), "[zot][");
    EXPECT_EQ(line.substr(14), "]\t zot\t\t Listening...\n");
    EXPECT_EQ(ReadFile(agent.PidFilePath()), "");
    EXPECT_EQ(agent.ErrorOutput(), "");
}

TEST(Startup, DebuggingModeShowsSizesAndWarningsDoNotStopTheStart) {
    AgentProcess agent({.arguments = {"-i", "-vd"}});
    std::string expected = kBanner +
                           "Ok\nSettings checking .. Warning: FilterMarks has less items than "
                           "FilterList\nCPU testing .. Ok\n"
                           "stat.size: 8\nsrec.size: 8\nfile.size: 8\nint64 = long long = 64\n" +
                           kChecks;
    EXPECT_EQ(agent.Output().substr(0, expected.size()), expected);
}

TEST(Startup, APortInUseIsReportedBeforeDetaching) {
    AgentProcess first;
    auto start = std::chrono::steady_clock::now();
    AgentProcess second({.arguments = {"-d"}, .port = first.Port(), .awaitReady = false});
    EXPECT_EQ(second.WaitForExit(), 4);
    // Three attempts, and a second of sleep after each.
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
    std::string output = second.Output();
    std::string tail = "Sock testing .. TCP listen error:\nsocket() or bind() error\n\n";
    ASSERT_GE(output.size(), tail.size());
    EXPECT_EQ(output.substr(output.size() - tail.size()), tail);
}

TEST(Startup, AFailedDetachIsReported) {
    FaultInjection faults;
    faults->fork.Fail(EAGAIN);
    AgentProcess agent(
        {.arguments = {"-d"}, .environment = faults.Environment(), .awaitReady = false});
    EXPECT_EQ(agent.WaitForExit(), 2);
    EXPECT_EQ(agent.ErrorOutput(), "Error initializing daemon: Resource temporarily unavailable\n");
    EXPECT_EQ(agent.Output().find("Daemon started"), std::string::npos);
}

}  // namespace
}  // namespace zot::test
