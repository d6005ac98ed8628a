#include "client/program.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

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
    std::vector<std::vector<std::string>> wrong = {
        {},
        {"--"},
        {"-x", "GetInfo"},
        {"-p"},
        {"-p", "0", "GetInfo"},
        {"-p70000", "GetInfo"},
        {"-t", "1s", "GetInfo"},
        {"-H", "", "GetInfo"},
        {"-P", dir / "missing", "GetInfo"},
        {"-P", dir.Path(), "GetInfo"},
        {"-P", dir.Write("empty", "\nsecret\n"), "GetInfo"},
        {"-w", "10", "GetInfo"},
        {"--state", "file", "GetInfo"},
        {"--stat=file", "GetInfo"},
        {"settings", "extra"},
        {"set"},
        {"upgrade"},
    };
    for (const auto& words : wrong) {
        ProgramRun run(words);
        EXPECT_EQ(run.status, kWrongUsage) << testing::PrintToString(words);
        EXPECT_TRUE(run.err.starts_with("zotq: ")) << run.err;
    }
    EXPECT_EQ(ProgramRun({"GetInfo"}, {}).status, kWrongUsage);
    EXPECT_EQ(ProgramRun({"--version"}, {}).out, "zotq 1.36\n");
    EXPECT_EQ(ProgramRun({"--help", "-p"}, {}).status, kWrongUsage);
    EXPECT_NE(ProgramRun({"--help"}, {}).out.find("-t SECONDS"), std::string::npos);
}

TEST(AgentConnection, ReadsRepliesOneByOneAndTheRestUntilClose) {
    FakeAgent agent([](int fd, const std::string& key, const std::string&) {
        SendReply(fd, key, "200\n\r");
        SendAll(fd, LengthBytes(6) + "rest");
    });
    AgentConnection connection;
    Deadline deadline(std::chrono::seconds(10));
    std::string text, rest, error;
    ASSERT_TRUE(connection.Open("localhost", agent.Port(), deadline, error)) << error;
    ASSERT_TRUE(connection.Send(BuildRequest(kTestPassword, "key", "QUIT\n\r"), deadline, error));
    ASSERT_TRUE(connection.ReceiveReply("key", deadline, text, error)) << error;
    EXPECT_EQ(text, "200\n\r");
    ASSERT_TRUE(connection.ReceiveUntilClose(deadline, rest, error)) << error;
    EXPECT_EQ(rest, LengthBytes(6) + "rest");
}

}  // namespace
}  // namespace zot::client
