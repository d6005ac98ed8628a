#include "client/probe.h"

#include <gtest/gtest.h>

#include <map>

namespace zot::client {
namespace {

// Follows a probe with an agent that always gives the same answer to a command. Returns the answer
// as one line.
std::string Follow(Probe& probe, std::map<std::string, Answer> replies,
                   std::string* last = nullptr) {
    for (int i = 0; i < 9; ++i) {
        auto question = probe.Next();
        if (!question) {
            std::string text = probe.answer.code;
            for (const std::string& line : probe.answer.lines) text += " " + line;
            return text;
        }
        if (last && !question->params.empty())
            *last = question->command + " " + question->params.back();
        probe.Take(replies.at(question->command));
    }
    return "no end";
}

TEST(Probe, AFolderIsGoneOnlyWhenNothingIsThere) {
    const Answer missing = {"301", {"no such file"}}, off = {"600", {"test is not allowed"}};
    const Answer found = {"200", {"1"}}, none = {"200", {"     0"}}, some = {"200", {"    42"}};
    const Answer emptyList = {"200", {"/a/", "0", "2"}}, list = {"200", {"/a/", "1", "2"}};
    struct Case {
        const char* path;
        Answer exists, size, files;
        const char* expected;
    } cases[] = {
        {"/a", found, some, list, "200     42"},
        {"/a", found, none, emptyList, "200      0"},
        {"/a", missing, none, emptyList, "301 no such file or folder"},
        {"/a/%newestfolder%", missing, none, list, "301 no such file or folder"},
        {"/a/*.log", missing, none, list, "200      0"},
        {"/a/*.log", missing, some, list, "200     42"},
        {"/a/*.log", missing, none, emptyList, "301 no such file or folder"},
        {"/a", off, some, emptyList, "200     42"},
        {"/a", off, none, list, "200      0"},
        {"/a", off, none, emptyList, "301 no such file or folder"},
        {"/a", off, off, list, "600 test is not allowed"},
    };
    for (const Case& c : cases) {
        SizeProbe probe(c.path);
        EXPECT_EQ(Follow(probe, {{"TEST-FileExists", c.exists},
                                 {"TEST-FolderSize", c.size},
                                 {"GetFilesList", c.files}}),
                  c.expected)
            << c.path;
    }
}

TEST(Probe, ProcessesAreCountedWithoutTheQuestion) {
    const Answer list = {"200",
                         {"init%0D%0A/usr/sbin/sshd -D%0D%0Asshd: root@pts/0%0D%0A"
                          "/usr/bin/zotq --plugin process sshd%0D%0A"
                          "sh -c /usr/bin/zotq --plugin process sshd%0D%0A"
                          "sh -c -- /usr/sbin/zot_proclist.sh 1>/sshd%0D%0Avi sshd_config%0D%0A"
                          "ps -A -ww -o args=%0D%0Acut -b 1-500%0D%0Acheck_zot sshd cut%0D%0A"}};
    for (const auto& [name, count] :
         {std::pair("sshd", "200 3"), std::pair("=sshd", "200 2"), std::pair("=vi", "200 1"),
          std::pair("ps -A", "200 0"), std::pair("cut", "200 0"), std::pair("nosuch", "200 0"),
          std::pair("=zotq", "200 1")}) {
        ProcessProbe probe(name, "check_zot sshd cut");
        EXPECT_EQ(Follow(probe, {{"GetProcessesList", list}}), count) << name;
    }
}

TEST(Probe, AnAgentWithoutAListCountsAndTheNameIsQuoted) {
    std::map<std::string, Answer> replies = {{"GetProcessesList", {"301", {"not speified"}}},
                                             {"TEST-Process", {"200", {"2"}}}};
    for (bool sameHost : {false, true}) {
        ProcessProbe probe("it's; touch f", "zotq process it's; touch f");
        probe.SetSameHost(sameHost);
        std::string question;
        EXPECT_EQ(Follow(probe, replies, &question), sameHost ? "200 1" : "200 2");
        EXPECT_EQ(question, "TEST-Process 'it'\\''s; touch f'");
    }
    ProcessProbe probe("=sshd", "");
    EXPECT_EQ(Follow(probe, replies), "301 not speified") << "its own count knows no programs";
}

}  // namespace
}  // namespace zot::client
