#include "client/program.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include "commands/agent_info.h"
#include "tests/client/fake_agent.h"
#include "tests/support/temp_dir.h"

namespace zot::client {
namespace {

FakeAgent::Handler Bytes(const std::string& bytes, bool waitForPeer = false) {
    return [=](int fd, const std::string&, const std::string&) {
        SendAll(fd, bytes);
        char byte = 0;
        if (waitForPeer) recv(fd, &byte, 1, 0);
    };
}

TEST(Program, SendsTheParametersAndPrintsTheReply) {
    FakeAgent agent({"200\na%0Ab\n\nlast\n\r"});
    ProgramRun run({agent.PortOption(), "TEST-X", "-1", "-", "two\nlines"}, {kTestPassword},
                   "from\n stdin\r\nend");
    EXPECT_EQ(run.status, kReplyOk) << run.err;
    EXPECT_EQ(run.out, "200\na%0Ab\n\nlast\n");
    EXPECT_EQ(agent.Requests()[0], "TEST-X\n-1\nfrom\n stdin%0D\nend\ntwo%0Alines\n\r");
}

TEST(Program, UnescapesOnDemandAndTellsOtherCodesApart) {
    FakeAgent agent({"301\nbad%0D%0Athing%0a\n\r"});
    ProgramRun run({agent.PortOption(), "-u", "TEST-X"});
    EXPECT_EQ(run.status, kReplyOther);
    EXPECT_EQ(run.out, "301\nbad\r\nthing%0a\n");
}

TEST(Program, PrintsJsonOfAnyBytes) {
    FakeAgent agent(
        {"301\n    42\n\"a\\%0A\x01\xC3\xA4|\xC3|\xED\xA0\x80\xF0\x9F\x98\x80\xF5\xE2\x82\n\r"});
    ProgramRun run({agent.PortOption(), "-u", "--json", "GetInfo"});
    EXPECT_EQ(run.status, kReplyOther);
    EXPECT_EQ(run.out,
              "{\"code\":\"301\",\"values\":[\"    42\",\"\\\"a\\\\\\u000a\\u0001\xC3\xA4|\\ufffd|"
              "\\ufffd\\ufffd\\ufffd\xF0\x9F\x98\x80\\ufffd\\ufffd\\ufffd\"]}\n");
}

TEST(Program, TakesThePasswordFromTheFirstLineOfAFile) {
    test::TempDir dir;
    for (const char* content : {"secret", "secret\n", "secret\r\nmore\n"}) {
        FakeAgent agent({"200\n\r"});
        ProgramRun run({agent.PortOption(), "-P", dir.Write("pw", content), "GetInfo"},
                       {"not this one"});
        EXPECT_EQ(run.status, kReplyOk) << run.err;
    }
}

TEST(Program, ReceivesLongReplies) {
    std::string value(3000000, 'v');
    FakeAgent agent({"200\n" + value + "\n\r"});
    EXPECT_EQ(ProgramRun({agent.PortOption(), "-t100", "GetFilesList"}).out,
              "200\n" + value + "\n");
}

TEST(Program, NoValidReply) {
    struct Case {
        FakeAgent::Handler handler;
        const char* message;
    } cases[] = {
        {Bytes(""), "closed the connection without a reply"},
        {Bytes(LengthBytes(8) + "half"), "in the middle"},
        {Bytes(LengthBytes(8) + "garbage!"), "no status code"},
        {Bytes(LengthBytes(0)), "no status code"},
        {Bytes("\xFF\xFF\xFF\xFF", true), "announces 4294967295 bytes"},
        {Bytes(LengthBytes(8) + "half", true), "within the time limit"},
    };
    for (const Case& c : cases) {
        FakeAgent agent(c.handler);
        ProgramRun run({agent.PortOption(), "-t", "1", "GetInfo"});
        EXPECT_EQ(run.status, kNoReply);
        EXPECT_EQ(run.out, "");
        EXPECT_NE(run.err.find(c.message), std::string::npos) << run.err;
    }
}

TEST(Program, UsageErrorsSendNothing) {
    test::TempDir dir;
    auto expectWrong = [](const std::string& line) {
        ProgramRun run(Words(line));
        EXPECT_EQ(run.status, kWrongUsage) << line;
        EXPECT_TRUE(run.err.starts_with("zotq: ")) << run.err;
    };
    for (const char* line : {"", "--", "-x|GetInfo", "-p", "-p|0|GetInfo", "-p70000|GetInfo",
                             "-t|1s|GetInfo", "-H||GetInfo", "-w|10|GetInfo", "set", "upgrade",
                             "--state|file|GetInfo", "--stat=file|GetInfo", "settings|extra"}) {
        expectWrong(line);
    }
    for (const std::string& path : {dir / "missing", dir.Path(), dir.Write("pw", "\nsecret\n")}) {
        expectWrong("-P|" + path + "|GetInfo");
    }
    EXPECT_EQ(ProgramRun({"GetInfo"}, {}).status, kWrongUsage);
    for (const char* option : {"-V", "--version"}) {
        EXPECT_EQ(ProgramRun({option}, {}).out, std::string("zotq ") + kAgentVersion + "\n");
        EXPECT_EQ(ProgramRun({"--plugin", option}, {}).status, 3) << "of a plugin: unknown";
    }
    EXPECT_EQ(ProgramRun({"--help", "-p"}).err,
              "zotq: option --port needs a value (see zotq --help)\n");
    EXPECT_NE(ProgramRun({"--help"}, {}).out.find("-t, --timeout SECONDS"), std::string::npos);
}

}  // namespace
}  // namespace zot::client
