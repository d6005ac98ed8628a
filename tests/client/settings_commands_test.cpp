#include <gtest/gtest.h>

#include "commands/remote_settings.h"
#include "tests/client/fake_agent.h"

namespace zot::client {
namespace {

TEST(Settings, AreShownForPeople) {
    const char* reply =
        "200\nAgentName=An agent\nAvailable tests=TCP%0D%0AFolder Size%0D%0A\nEnabled tests=10\n"
        "Comment=\nPassword=topsecret\nIPFilterAddr=10.0.0.1%0D%0A10.0.0.2\nIPFilterMarks=1\n\r";
    FakeAgent agent({reply});
    ProgramRun run({agent.PortOption(), "settings"});
    EXPECT_EQ(run.status, kReplyOk) << run.err;
    EXPECT_EQ(run.out,
              "AgentName        An agent\n"
              "Available tests  TCP          on\n"
              "                 Folder Size  off\n"
              "Comment        \n"
              "Password         ********\n"
              "IPFilterAddr     10.0.0.1\n"
              "                 10.0.0.2\n"
              "IPFilterMarks    1\n");
    EXPECT_EQ(agent.Requests()[0], "GetSettings\n\r");
    run = ProgramRun({agent.PortOption(), "--show-password", "settings"});
    EXPECT_NE(run.out.find("Password         topsecret\n"), std::string::npos);
    run = ProgramRun({agent.PortOption(), "--json", "settings"});
    EXPECT_NE(run.out.find("\"Password=********\""), std::string::npos);
    EXPECT_EQ(run.out.find("topsecret"), std::string::npos);
    run = ProgramRun({agent.PortOption(), "-o", "raw", "settings"});
    EXPECT_EQ(run.out.find("topsecret"), std::string::npos);
    run = ProgramRun(Words(agent.PortOption() + "|--show-password|--fields|password|settings"));
    EXPECT_EQ(run.out, "Password\ntopsecret\n");

    FakeAgent refusing({"600\nOperation is not allowed\n\r"});
    run = ProgramRun({refusing.PortOption(), "settings"});
    EXPECT_EQ(run.out, "600\nOperation is not allowed\n");
    EXPECT_EQ(run.status, kReplyOther);
}

TEST(Settings, AreSetByEveryNameThatTheAgentKnows) {
    FakeAgent agent({"200\n\r"});
    std::vector<std::string> words = {agent.PortOption(), "set"};
    std::string request = "SetSettings\n";
    for (const WireSetting& setting : WireSettings()) {
        bool secret = setting.name == "Password";
        words.push_back(std::string(setting.name) + (secret ? "=-" : "=1"));
        request += std::string(setting.name) + "=1\n";
    }
    words.push_back("--force");
    EXPECT_EQ(ProgramRun(words, {kTestPassword}, "1\n").status, kReplyOk);
    EXPECT_EQ(ProgramRun({agent.PortOption(), "set", "--force", " TCP = 0 ",
                          "IPFilterAddr=a\nb\r\nc%0D%0Ad", "Comment="})
                  .status,
              kReplyOk);
    EXPECT_EQ(agent.Requests(),
              (std::vector<std::string>{
                  request + "\r",
                  "SetSettings\nTCP=0\nIPFilterAddr=a%0D%0Ab%0D%0Ac%0D%0Ad\nComment=\n\r"}));
}

TEST(Settings, WhatTheAgentWouldIgnoreIsRefused) {
    FakeAgent agent({"200\n\r"});
    struct Case {
        const char* word;
        const char* message;
    };
    for (const Case& c :
         {Case{"port=5", "no setting with the name port; there are: Comment, Port, "},
          Case{"Shell Script=1", "no setting"}, Case{"=1", "no setting"}, Case{"TCP", "NAME=VALUE"},
          Case{"TCP=yes", "must be 0 or 1"}, Case{"TCP=", "must be 0 or 1"},
          Case{"TCP=01", "must be 0 or 1"}, Case{"Port=0", "must be 1 to 65535"},
          Case{"Port=65536", "must be 1 to 65535"}, Case{"Timeout=5s", "whole number"},
          Case{"Timeout=-2147483649", "whole number"}, Case{"Timeout=2147483648", "whole number"},
          Case{"Comment=a\nTCP=0", "no line break"}, Case{"Password=", "must not be empty"},
          Case{"Port=", "must be 1 to 65535"}, Case{"Password=secret", "others can see"},
          Case{"Password=@/no/such", "cannot read"}}) {
        ProgramRun run({agent.PortOption(), "set", "UDP=1", c.word});
        EXPECT_EQ(run.status, kWrongUsage) << c.word;
        EXPECT_NE(run.err.find(c.message), std::string::npos) << run.err;
    }
    EXPECT_TRUE(agent.Requests().empty());
}

// The agent's settings, and what it accepted.
struct GuardedAgent : FakeAgent {
    GuardedAgent()
        : FakeAgent([](int fd, const std::string& key, const std::string& text) {
              bool asked = text.starts_with("GetSettings");
              SendReply(fd, key,
                        asked ? "200\nAvailable tests=TCP%0D%0A\nEnabled tests=1\n"
                                "Timeout=4000\nPassword=old\nIPFiltering=1\n"
                                "IPFilterAddr=127.0.0.1%0D%0A10.0.0.1\nIPFilterMarks=11\n"
                                "AllowRManage=1\nUpdateAddr=10.0.0.1\n"
                                "ManageAddr=127.0.0.1,10.0.0.0-10.0.0.9\n\r"
                              : "200\n\r");
          }) {}
    bool Took() const {
        auto requests = Requests();
        return !requests.empty() && requests.back().starts_with("SetSettings");
    }
};

TEST(Settings, WhoeverAsksIsNotLockedOut) {
    struct Case {
        const char *words, *message;
    } cases[] = {
        {"IPFilterAddr=10.0.0.1", "nobody from 127.0.0.1"},
        {"IPFilterMarks=01", "nobody from 127.0.0.1"},
        {"IPFilterAddr=127.0.0.1%0D%0A10.0.0.0/8", "takes addresses only, not 10.0.0.0/8"},
        {"IPFilterAddr=127.0.0.1%0D%0A10.0.0.", "takes addresses only, not 10.0.0."},
        {"ManageAddr=10.0.0.0-10.0.0.9", "would no longer name 127.0.0.1"},
        {"ManageAddr=127.0.0.1,10.0.0.0/24", "takes ranges such as"},
        {"AllowRManage=0", "ends remote management"},
        {"IPFilterAddr=127.0.0.10", ""},  // the agent compares text
        {"IPFilterAddr=10.0.0.1|IPFiltering=0", ""},
        {"UpdateAddr=10.0.0.2", ""},  // it did not name us before
        {"Timeout=-1", ""},
        {"ManageAddr=127.0.0.0-127.0.0.255", ""},
    };
    for (const Case& c : cases) {
        GuardedAgent agent;
        ProgramRun run(Words(agent.PortOption() + "|set|" + c.words));
        EXPECT_EQ(run.status, *c.message ? kWrongUsage : kReplyOk) << c.words << run.err;
        EXPECT_NE(run.err.find(c.message), std::string::npos) << run.err;
        EXPECT_EQ(agent.Took(), *c.message == '\0') << c.words;
        ProgramRun forced(Words(agent.PortOption() + "|set|--force|" + c.words));
        EXPECT_EQ(forced.status, kReplyOk);
        EXPECT_TRUE(agent.Took());
    }
}

TEST(Settings, ADryRunShowsWhatWouldChange) {
    GuardedAgent agent;
    ProgramRun run(Words(agent.PortOption() + "|set|--dry-run|Timeout=8000|TCP=1|Password=-"),
                   {kTestPassword}, "new\n");
    EXPECT_EQ(run.status, kReplyOk) << run.err;
    EXPECT_EQ(run.out,
              "SETTING   NOW       THEN\n"
              "Timeout   4000      8000\n"
              "Password  ********  a new one\n");
    EXPECT_EQ(ProgramRun(Words(agent.PortOption() + "|set|--dry-run|Timeout=4000")).out,
              "nothing would change\n");
    EXPECT_FALSE(agent.Took());
}

}  // namespace
}  // namespace zot::client
