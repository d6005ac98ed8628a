// What people see: tables, forms for programs, many hosts, roll-outs.
#include <gtest/gtest.h>

#include <filesystem>
#include <regex>

#include "client/rollout_list.h"
#include "client/rollout_plan.h"
#include "client/text.h"
#include "commands/agent_info.h"
#include "tests/client/fake_agent.h"
#include "tests/support/temp_dir.h"

namespace zot::client {
namespace {

constexpr const char* kSpace = "200\n  4000\n  1000\n   600\n3\n\r";

std::string Settings(const char* timeout) {
    return "200\nTimeout=" + std::string(timeout) +
           "\nAvailable tests=CPU Usage%0D%0A\nEnabled tests=1\nPassword=x\n\r";
}

// Times differ from run to run.
std::string WithoutTimes(const std::string& text) {
    return std::regex_replace(text, std::regex("\"seconds\":[0-9.e-]+|[0-9.]+ m?s\\b"), "TIME");
}

// A list of hosts that are all 127.0.0.1: some that answer, one that refuses, one without password.
class Fleet : public testing::Test {
  protected:
    void Add(const std::string& name, const FakeAgent& agent, const std::string& more = "") {
        list_ += name + ":" + std::to_string(agent.Port()) +
                 " addr=127.0.0.1 password=" + password_ + more + "\n";
    }
    void AddDown(const std::string& name) {
        list_ += name + ":" + std::to_string(test::Loopback(SOCK_STREAM).Port()) +
                 " addr=127.0.0.1 password=" + password_ + "\n";
    }
    ProgramRun Run(const std::string& line) {
        std::string hosts = dir_.Write("hosts", list_);
        return ProgramRun(Words("--hosts|" + hosts + "|" + line), Environment{});
    }

    test::TempDir dir_;
    std::string password_ = dir_.Write("pw", std::string(kTestPassword) + "\n");
    std::string list_;
};

TEST(People, OneHostIsATableOrWhatIsAskedFor) {
    FakeAgent agent({kSpace});
    auto run = [&](const std::string& line) {
        ProgramRun program(Words(agent.PortOption() + "|" + line));
        EXPECT_EQ(program.status, kReplyOk) << program.err;
        return WithoutTimes(program.out);
    };
    EXPECT_EQ(run("disk|/|/var"),
              "PATH  SIZE     USED  AVAILABLE\n"
              "/     3.9 KiB   83%      600 B\n"
              "/var  3.9 KiB   83%      600 B\n");
    EXPECT_EQ(run("-o|ndjson|disk|/"),
              "{\"host\":\"127.0.0.1\",\"status\":\"ok\",\"code\":200,TIME,\"path\":\"/\","
              "\"size_bytes\":4000,\"used_percent\":83.33333333333333,\"free_bytes\":1000,"
              "\"available_bytes\":600,\"query_seconds\":0.003}\n");
    EXPECT_EQ(run("--fields=path,size_bytes|-o|csv|TEST-UNC|/a,\"b"),
              "path,size_bytes\n\"/a,\"\"b\",4000\n");
    EXPECT_EQ(run("disk|/|--fields|free_bytes,host"), "FREE    HOST\n1000 B  127.0.0.1\n");
    EXPECT_EQ(run("-o|raw|disk"), "200\n  4000\n  1000\n   600\n3\n");
    EXPECT_EQ(ProgramRun(Words(agent.PortOption() + "|--fields|size|disk")).status, kWrongUsage);
    FakeAgent quick({"200\n1\n1\n1\n0.3\n\r"});
    EXPECT_EQ(ProgramRun(Words(quick.PortOption() + "|--fields|query_seconds|-o|csv|disk")).out,
              "query_seconds\n0.0003\n");
}

TEST(People, FailuresHaveNamedFieldsToo) {
    FakeAgent agent({"301\nNo such file\n\r"});
    ProgramRun run(Words(agent.PortOption() + "|-o|ndjson|TEST-UNC|/x"));
    EXPECT_EQ(run.status, kReplyOther);
    EXPECT_EQ(WithoutTimes(run.out),
              "{\"host\":\"127.0.0.1\",\"status\":\"agent_code\",\"code\":301,TIME,"
              "\"path\":\"/x\",\"error\":\"the agent answered 301: No such file\"}\n");
    EXPECT_EQ(ProgramRun(Words(agent.PortOption() + "|age|/x")).err,
              "zotq: /x: the agent answered 301: No such file\n");
    test::TempDir dir;
    FakeAgent failing({"200\nfine\nzotq-exit:3%0D%0Afine%0D%0A\n\r"});
    EXPECT_EQ(
        ProgramRun(Words(failing.PortOption() + "|-o|table|script|" + dir.Write("s", "x"))).err,
        "zotq: the script failed with 3\n");
    ProgramRun down(Words("-p|1|-o|json|disk"));
    EXPECT_EQ(down.status, kNoReply);
    EXPECT_NE(down.out.find("\"status\": \"connect_refused\",\n    \"code\": null"),
              std::string::npos)
        << down.out;
}

TEST(People, ASlipGetsTheNearestName) {
    for (const auto& [word, nearest] : {std::pair("statsu", "status?"), std::pair("dsik", "disk?"),
                                        std::pair("getinfo", "GetInfo?")}) {
        ProgramRun run({word});
        EXPECT_EQ(run.status, kWrongUsage);
        EXPECT_NE(run.err.find(nearest), std::string::npos) << run.err;
    }
    FakeAgent agent({"500\nUnknown command \"TEST-UMC\"\n\r"});
    ProgramRun run({agent.PortOption(), "TEST-UMC", "/"});
    EXPECT_EQ(run.out, "500\nUnknown command \"TEST-UMC\"\n");
    EXPECT_NE(run.err.find("TEST-UNC?"), std::string::npos) << run.err;
    EXPECT_NE(ProgramRun(std::vector<std::string>{}).err.find("To begin"), std::string::npos);
    EXPECT_NE(ProgramRun({"-uV"}).out.find(kAgentVersion), std::string::npos)
        << "flags may be joined";
}

TEST(People, ControlCharactersNeverReachATerminal) {
    FakeAgent agent({"200\n\x1b[2Jv\xC2\x9B%0Ax\n\r"});
    for (const char* line : {"GetX", "-u|GetX", "-o|csv|GetX", "-o|table|GetX"}) {
        ProgramRun run(Words(agent.PortOption() + "|" + line), {kTestPassword}, "", false, true);
        EXPECT_EQ(run.out.find('\x1b'), std::string::npos) << line;
        EXPECT_EQ(run.out.find('\x9B'), std::string::npos) << line;
        EXPECT_NE(run.out.find("\\x1B[2Jv\\x9B"), std::string::npos) << run.out;
    }
    for (const char* line :
         {"-o|json|GetX", "-o|ndjson|GetX", "--fold|-o|json|GetX", "--json|GetX", "--plugin|cpu"}) {
        ProgramRun run(Words(agent.PortOption() + "|" + line), {kTestPassword}, "", false, true);
        EXPECT_EQ(run.out.find_first_of("\x1b\x9B"), std::string::npos) << line;
        EXPECT_NE(run.out.find("[2Jv"), std::string::npos) << run.out;
    }
    EXPECT_EQ(ProgramRun({agent.PortOption(), "GetX"}).out, "200\n\x1b[2Jv\xC2\x9B%0Ax\n")
        << "a pipe gets every byte";
}

TEST_F(Fleet, EveryHostIsInTheOutputInItsOrder) {
    FakeAgent one({"200\nAgentVersion=1.36\nRunningOS=Linux 6.1.0\n\r"});
    FakeAgent two(FakeAgent::Handler([](int, const std::string&, const std::string&) {}));
    Add("web1", one);
    Add("web3", two);
    AddDown("db2");
    list_ += "db1 addr=127.0.0.1 password=/no/such/file\n";
    ProgramRun run = Run("--failed|" + (dir_ / "failed") + "|status");
    EXPECT_EQ(run.status, kNoReply);
    std::regex table(
        "HOST  STATUS +VERSION  SYSTEM +MS +NOTE\n"
        "web1  ok +1.36 +Linux 6.1 +[0-9]+\n"
        "web3  closed +- +- +[0-9]+  connected, no reply: password or filter\n"
        "db2   connect_refused  - +- +[0-9]+  nobody listens on port [0-9]+\n"
        "db1   local +- +- +0  cannot read .*\n");
    EXPECT_TRUE(std::regex_match(run.out, table)) << run.out;
    EXPECT_NE(
        run.err.find("4 hosts: 1 ok, 1 closed, 1 connect_refused, 1 local; versions 1.36 x1;"),
        std::string::npos)
        << run.err;
    list_ = test::ReadFile(dir_ / "failed");
    EXPECT_EQ(std::count(list_.begin(), list_.end(), '\n'), 3);
    EXPECT_NE(Run("status").err.find("3 hosts: 0 ok"), std::string::npos);
}

TEST_F(Fleet, IsChosenByNameGroupAndExclusion) {
    FakeAgent agent({kSpace});
    Add("web[1-3]", agent);  // refused: one address for several
    EXPECT_EQ(Run("status").status, kWrongUsage);
    list_.clear();
    for (const char* name : {"web1", "web2", "db1"}) Add(name, agent, " groups=g");
    EXPECT_EQ(WithoutTimes(Run("-H|web[1-2]|-x|web2|disk").out),
              "HOST  STATUS  PATH  SIZE     USED  AVAILABLE\n"
              "web1  ok      /     3.9 KiB   83%      600 B\n");
    EXPECT_EQ(Run("-H|@g|--pick|2|disk|--fields|status").out, "STATUS\nok\nok\n");
    EXPECT_EQ(Run("-H|other|disk").status, kWrongUsage) << "nobody outside of the list is asked";
    EXPECT_EQ(agent.Requests().size(), 3U);
    EXPECT_EQ(Run("-H|db1|-o|raw|disk").out,
              "db1: 200\ndb1:   4000\ndb1:   1000\ndb1:    600\ndb1: 3\n");
    std::string first = Run("hosts").out.substr(0, 5);
    EXPECT_EQ(first, "web1:");
}

TEST_F(Fleet, EqualAnswersAreFolded) {
    FakeAgent usual({Settings("4000")}), other({Settings("8000")});
    for (const char* name : {"web1", "web2", "db1"}) Add(name, usual);
    Add("web9", other);
    AddDown("web8");
    ProgramRun run = Run("--fold|settings");
    EXPECT_EQ(run.status, kNoReply);
    EXPECT_EQ(
        run.out,
        "web[1-2],db1 (3)  Timeout=4000  CPU Usage=1  Password=********\n"
        "web9 (1)          Timeout=8000  CPU Usage=1  Password=********  <- differs: Timeout\n"
        "web8 (1)          connect_refused\n");
    EXPECT_EQ(
        Run("--diff|-x|web8|settings").out,
        "web[1-2],db1 (3)  Timeout=4000\nweb9 (1)          Timeout=8000  <- differs: Timeout\n");
    EXPECT_EQ(
        Run("--diff|-x|web8|-o|ndjson|settings").out,
        "{\"hosts\":[\"web1\",\"web2\",\"db1\"],\"count\":3,\"status\":\"ok\",\"timeout\":4000}\n"
        "{\"hosts\":[\"web9\"],\"count\":1,\"status\":\"ok\",\"timeout\":8000}\n");
}

TEST_F(Fleet, WhatReadsEqualIsFoldedAndWhatIsTooWideToo) {
    std::string tests, marks, expected = "web[1-2] (2)";
    for (char c = 'A'; c < 'N'; ++c) {
        tests += "Test " + std::string(1, c) + "%0D%0A";
        marks += '1';
        expected += (c == 'I' ? "\n            " : "") + ("  Test " + std::string(1, c)) + "=1";
    }
    FakeAgent wide({"200\nAvailable tests=" + tests + "\nEnabled tests=" + marks + "\n\r"});
    FakeAgent more({"200\n4001\n1000\n600\n3\n\r"}), less({kSpace});
    for (const char* name : {"web1", "web2"}) Add(name, wide);
    Add("db1", more);
    Add("db2", less);
    EXPECT_EQ(Run("-H|web*|settings").out, expected + "\n");
    EXPECT_EQ(Run("-H|db*|--fold|disk").out,
              "db[1-2] (2)  path=/  size=3.9 KiB  used=83%  available=600 B\n");
    EXPECT_EQ(Run("-H|db*|--diff|-o|ndjson|disk|--fields|size_bytes").out,
              "{\"hosts\":[\"db1\"],\"count\":1,\"status\":\"ok\",\"size_bytes\":4001}\n"
              "{\"hosts\":[\"db2\"],\"count\":1,\"status\":\"ok\",\"size_bytes\":4000}\n");
    EXPECT_EQ(Run("-H|web*|--diff|settings").out, "web[1-2] (2)  nothing differs\n");
    EXPECT_EQ(Run("--fold|-o|csv|disk").status, kWrongUsage);
}

TEST_F(Fleet, WhoWatchesSeesThatItGoesOn) {
    FakeAgent silent(FakeAgent::Handler([](int fd, const std::string&, const std::string&) {
        char byte = 0;
        recv(fd, &byte, 1, 0);
    }));
    Add("web1", silent);
    AddDown("web2");
    std::string hosts = dir_.Write("hosts", list_);
    ProgramRun run(Words("-t1|--hosts|" + hosts + "|status"), Environment{}, "", true);
    EXPECT_EQ(run.status, kNoReply);
    EXPECT_NE(run.err.find("\r\x1b[K1/2 hosts, 1 failed, at most 1 s left"), std::string::npos)
        << run.err;
    EXPECT_NE(run.err.find("\r\x1b[K2 hosts: 0 ok"), std::string::npos) << run.err;
}

TEST_F(Fleet, TheUsualListHasThePasswordOfASingleHost) {
    FakeAgent agent({"200\n9.5\n\r"});
    Add("web1", agent);
    Environment environment;
    std::string hosts = dir_.Write("hosts", list_);
    environment.hosts = hosts.c_str();
    EXPECT_EQ(ProgramRun({"-H", "web1", "cpu"}, environment).status, kReplyOk);
    EXPECT_EQ(ProgramRun({"-H", "web1", "--plugin", "cpu"}, environment).status, 0);
    dir_.Write("pw", std::string(" ") + kTestPassword + " \r\n");
    EXPECT_EQ(ProgramRun({"-H", "web1", "cpu"}, environment).status, kReplyOk);
    EXPECT_EQ(ProgramRun(Words(agent.PortOption() + "|cpu"), {"secret\r"}).status, kReplyOk);
    EXPECT_NE(ProgramRun({"-H", "web2", "cpu"}, environment).err.find("web2 is not in "),
              std::string::npos);
    dir_.Write("hosts", "web1:x\n");
    EXPECT_NE(ProgramRun({"-H", "web1", "cpu"}, environment).err.find("line 1: not a port"),
              std::string::npos);
}

TEST(Rollout, BatchesArePlanned) {
    std::vector<size_t> batches;
    std::string error;
    ASSERT_TRUE(PlanBatches("1,5,20%", 45, batches, error));
    EXPECT_EQ(PlanText("web1", batches, 46), "plan: web1 | 1 | 5 | 9, 9, 9, 9, 3  (46 hosts)");
    ASSERT_TRUE(PlanBatches("50%", 1, batches, error));
    EXPECT_EQ(PlanText("", batches, 1), "plan: 1  (1 host)");
    for (const char* wrong : {"0", "x", "1,,2", "101%", "-1"}) {
        EXPECT_FALSE(PlanBatches(wrong, 9, batches, error)) << wrong;
    }
}

TEST(Rollout, TheListIsKeptAndKeptAlone) {
    test::TempDir dir;
    std::string error;
    {
        RolloutList list, other;
        ASSERT_TRUE(list.Open(dir / "list", error)) << error;
        EXPECT_FALSE(other.Open(dir / "list", error));
        EXPECT_TRUE(list.Record("web1", "upgraded", "abc", "1.36", error));
        EXPECT_TRUE(list.Record("web2", "failed", "abc", "no\nanswer", error));
    }
    RolloutList list;
    ASSERT_TRUE(list.Open(dir / "list", error)) << error;
    EXPECT_TRUE(list.HasUpgraded("web1", "abc"));
    EXPECT_FALSE(list.HasUpgraded("web1", "other"));
    EXPECT_FALSE(list.HasUpgraded("web2", "abc"));
    dir.Write("bad", "web1\n");
    EXPECT_FALSE(RolloutList().Open(dir / "bad", error));
}

}  // namespace
}  // namespace zot::client
