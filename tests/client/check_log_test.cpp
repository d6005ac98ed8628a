#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "checks/logs/log_checks.h"
#include "client/log_state.h"
#include "client/plugin.h"
#include "tests/client/fake_agent.h"
#include "tests/support/temp_dir.h"

namespace zot::client {
namespace {

// An agent that only answers TEST-TextLog, and a log that it reads.
class CheckLog : public testing::Test {
  protected:
    CheckLog() { Append(3); }

    void Append(int count) {
        std::ofstream log(log_, std::ios::app);
        for (; count > 0; --count) log << "error " << ++lines_ << "\n";
    }
    ProgramRun Run(const std::string& options = "", const std::string& pattern = "error") {
        std::string line = "--plugin|" + agent_.PortOption() + options + "|log|" + log_;
        return ProgramRun(Words(line + "|" + pattern),
                          {kTestPassword, nullptr, dir_.Path().c_str()});
    }

    test::TempDir dir_;
    std::string log_ = dir_ / "app.log";
    int lines_ = 0;
    FakeAgent agent_{[](int fd, const std::string& key, const std::string& text) {
        Reply reply;
        TestTextLog(std::string_view(text).substr(text.find('\n') + 1), AgentSettings(), reply);
        reply.Finish();
        SendReply(fd, key, std::string(reply.Text().View()));
    }};
};

TEST_F(CheckLog, CountsWhatIsNewSinceTheLastRun) {
    EXPECT_EQ(Run().out, "LOG OK - watching " + log_ + " from now on | matches=0;;0;0\n");
    EXPECT_EQ(Run().status, kOk);
    Append(2);
    // Who looks at the log by hand takes nothing away from the monitoring.
    std::string home = dir_.Path();
    for (int i = 0; i < 2; ++i) {
        ProgramRun({agent_.PortOption(), "log", log_, "error"},
                   {kTestPassword, nullptr, home.c_str()});
    }
    ProgramRun run = Run();
    EXPECT_EQ(run.status, kCritical);
    EXPECT_EQ(run.out, "LOG CRITICAL - 2 new lines with 'error' in " + log_ +
                           ", the last: error 5 | matches=2;;0;0\n");
    EXPECT_EQ(Run().status, kOk);

    struct stat status = {};
    for (const auto& entry : std::filesystem::directory_iterator(dir_ / ".local/state/zotq")) {
        ASSERT_EQ(stat(entry.path().c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777, 0600U) << entry.path();
        EXPECT_FALSE(entry.path().string().ends_with(".new"));
    }
}

TEST_F(CheckLog, FollowsALogThatIsEmptiedOrStillBeingWritten) {
    dir_.Write("app.log", "");
    EXPECT_EQ(Run().status, kOk);
    dir_.Write("app.log", "an error | here\nERROR\nerror in a line without an en");
    EXPECT_NE(Run().out.find(" 2 new lines with 'error' in "), std::string::npos);
    std::ofstream(log_, std::ios::app) << "d\n";
    EXPECT_NE(Run().out.find(", the last: error in a line without an end "), std::string::npos);
    // Rotated by copying: the file is shorter than it was, and is read while empty.
    for (const char* content : {"error |\n", "", "error |\n"}) {
        dir_.Write("app.log", content);
        bool found = Run().out.find("1 new line with 'error' in " + log_ +
                                    ", the last: error / ") != std::string::npos;
        EXPECT_EQ(found, *content != '\0');
    }
}

TEST_F(CheckLog, AnAlarmIsHeldForAWhile) {
    EXPECT_EQ(Run("|--hold|5").status, kOk);
    Append(2);
    EXPECT_EQ(Run("|--hold|5").status, kCritical);
    ProgramRun held = Run("|--hold|5");
    EXPECT_EQ(held.status, kCritical);
    EXPECT_NE(held.out.find("0 new lines with 'error' in " + log_ + ", but 2 lines "),
              std::string::npos)
        << held.out;
    EXPECT_NE(held.out.find(" ago: error 5 | matches=0;;0;0\n"), std::string::npos) << held.out;
    EXPECT_EQ(Run().status, kOk) << "nothing is held for who does not ask for it";
}

TEST_F(CheckLog, FindsAPlaceWithoutAnEnvironment) {
    // The account's home directory, which tests must not fill, is skipped when it is not available;
    // a folder of the user's own remains.
    Environment none = {kTestPassword};
    std::string error;
    LogState state;
    ASSERT_TRUE(state.Open("", "a test of zotq", none, Deadline(std::chrono::seconds(5)), error))
        << error;
    EXPECT_TRUE(state.Save({1, 2, 3}, error)) << error;
    LogState again;
    state = LogState();
    ASSERT_TRUE(again.Open("", "a test of zotq", none, Deadline(std::chrono::seconds(5)), error));
    EXPECT_EQ(again.Position().lastModified, 3);
    std::filesystem::remove(again.Path());
    std::filesystem::remove(again.Path() + ".lock");
}

TEST_F(CheckLog, VeryManyLinesAreNotCountedToTheEnd) {
    EXPECT_EQ(Run().status, kOk);
    Append(4997);
    // It stops early when half of its time is gone.
    EXPECT_NE(Run("|-t|240").out.find("at least 1000 new lines with 'error' in " + log_ +
                                      ", the last: error 5000"),
              std::string::npos);
    EXPECT_EQ(Run().status, kOk);
}

TEST_F(CheckLog, TwoRunsAtOnceShareTheLinesAndLoseNone) {
    EXPECT_EQ(Run().status, kOk);
    Append(80);
    std::atomic<int> counted{0};
    std::vector<std::thread> runs;
    for (int i = 0; i < 4; ++i) {
        runs.emplace_back([&] {
            int matches = 0;
            std::string out = Run().out;
            sscanf(out.substr(out.find("matches=")).c_str(), "matches=%d", &matches);
            counted += matches;
        });
    }
    for (std::thread& run : runs) run.join();
    EXPECT_EQ(counted, 80);
}

TEST_F(CheckLog, AStateThatIsNotItsOwnIsRefusedAndKept) {
    std::string file = dir_ / "state";
    EXPECT_EQ(Run("|--state|" + file).status, kOk);
    std::string kept = test::ReadFile(file);
    ProgramRun other = Run("|--state=" + file, "warning");
    EXPECT_EQ(other.status, kUnknown);
    EXPECT_NE(other.out.find("another agent, log or pattern"), std::string::npos);
    EXPECT_EQ(test::ReadFile(file), kept);
    for (const char* damaged : {"", "zotq log state 1\n", "something else\n1 2 3\n"}) {
        dir_.Write("state", damaged);
        EXPECT_EQ(Run("|--state|" + file).status, kUnknown);
        EXPECT_EQ(test::ReadFile(file), damaged);
    }
    EXPECT_EQ(Run("|--state|" + (dir_ / "missing/state")).status, kUnknown);
    // What cannot be saved whole is not saved.
    std::filesystem::remove(file);
    rlimit before = {}, none = {};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    none.rlim_max = before.rlim_max;
    auto handler = signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &none);
    int status = Run("|--state|" + file).status;
    setrlimit(RLIMIT_FSIZE, &before);
    signal(SIGXFSZ, handler);
    EXPECT_EQ(status, kUnknown);
    EXPECT_FALSE(std::filesystem::exists(file));
}

TEST(CheckLogFailure, LeavesTheStateForTheNextRun) {
    test::TempDir dir;
    FakeAgent agent({"200\n0\n\n0\n9\n10\n7\n10\n\r", "200\n1\nx\n1\n12\n10\n7\n20\n\r",
                     "301\nFile \"log\" not found\n\r"});
    std::string file = dir / "state";
    auto words = Words("--plugin|" + agent.PortOption() + "|--state|" + file + "|log|/log|x");
    EXPECT_EQ(ProgramRun(words).status, kOk);
    std::string kept = test::ReadFile(file);
    ProgramRun run(words);
    EXPECT_EQ(run.status, kCritical);
    EXPECT_EQ(run.out, "LOG CRITICAL - the agent answered 301: File \"log\" not found\n");
    EXPECT_EQ(test::ReadFile(file), kept);
}

}  // namespace
}  // namespace zot::client
