#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "client/plugin.h"
#include "tests/client/fake_agent.h"
#include "tests/support/temp_dir.h"

namespace zot::client {
namespace {

// A log at the agent of one byte a line, each of which matches. Positions count its lines, and a
// reply takes as long as two runs at once need to meet.
class LogAgent : public FakeAgent {
  public:
    explicit LogAgent(std::atomic<int>& size)
        : FakeAgent([&size](int fd, const std::string& key, const std::string& text) {
              SendReply(fd, key, Answer(size, text));
          }) {}

  private:
    static std::string Answer(int size, const std::string& text) {
        long position = 0, lastSize = 0;
        int findAll = 0;
        EXPECT_EQ(sscanf(text.c_str(), "TEST-TextLog\n/log\nerror\n%ld\n%ld\n%*d\n0\n%d\n0\n0\n",
                         &position, &lastSize, &findAll),
                  3)
            << text;
        bool first = lastSize == 0;
        bool found = !first && position < size;
        position = first || findAll ? size : std::min<long>(position + 1, size);
        bool more = found && position < size;
        std::string line = found ? "line " + std::to_string(position) : "";
        std::ostringstream reply;
        reply << "200\n"
              << (found ? position : 0) << "\n"
              << line << "\n"
              << more << "\n"
              << position << "\n"
              << (more ? lastSize : size) << "\n7\n"
              << size << "\n\r";
        return reply.str();
    }
};

class CheckLog : public testing::Test {
  protected:
    ProgramRun Run(std::vector<std::string> words) {
        std::vector<std::string> line = {"--plugin", agent_.PortOption()};
        line.insert(line.end(), words.begin(), words.end());
        return ProgramRun(line, {kTestPassword, nullptr, dir_.Path().c_str()});
    }
    ProgramRun Run() { return Run({"log", "/log", "error"}); }

    test::TempDir dir_;
    std::atomic<int> size_{3};
    LogAgent agent_{size_};
};

TEST_F(CheckLog, CountsWhatIsNewSinceTheLastRun) {
    EXPECT_EQ(Run().out, "LOG OK - watching /log from now on | matches=0;;0;0\n");
    EXPECT_EQ(Run().status, kOk);
    size_ = 5;
    ProgramRun run = Run();
    EXPECT_EQ(run.status, kCritical);
    EXPECT_EQ(run.out,
              "LOG CRITICAL - 2 new lines with 'error' in /log, the last: line 5 | "
              "matches=2;;0;0\n");
    EXPECT_EQ(Run().status, kOk);

    struct stat status = {};
    for (const auto& entry : std::filesystem::directory_iterator(dir_ / ".local/state/zotq")) {
        ASSERT_EQ(stat(entry.path().c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777, 0600U) << entry.path();
        EXPECT_FALSE(entry.path().string().ends_with(".new"));
    }
}

TEST_F(CheckLog, ALogThatWasEmptyIsReadFromItsFirstLine) {
    size_ = 0;
    EXPECT_EQ(Run().status, kOk);
    size_ = 2;
    EXPECT_NE(Run().out.find("2 new lines"), std::string::npos);
}

TEST_F(CheckLog, VeryManyLinesAreNotCountedToTheEnd) {
    EXPECT_EQ(Run().status, kOk);
    size_ = 5000;
    EXPECT_NE(Run().out.find("at least 1000 new lines with 'error' in /log, the last: line 5000"),
              std::string::npos);
    EXPECT_EQ(Run().status, kOk);
}

TEST_F(CheckLog, TwoRunsAtOnceShareTheLinesAndLoseNone) {
    EXPECT_EQ(Run().status, kOk);
    size_ = 83;
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
    EXPECT_EQ(Run({"--state", file, "log", "/log", "error"}).status, kOk);
    std::string kept = test::ReadFile(file);
    ProgramRun other = Run({"--state=" + file, "log", "/log", "warning"});
    EXPECT_EQ(other.status, kUnknown);
    EXPECT_NE(other.out.find("another agent, log or pattern"), std::string::npos);
    EXPECT_EQ(test::ReadFile(file), kept);
    for (const char* damaged : {"", "zotq log state 1\n", "something else\n1 2 3\n"}) {
        dir_.Write("state", damaged);
        EXPECT_EQ(Run({"--state", file, "log", "/log", "error"}).status, kUnknown);
        EXPECT_EQ(test::ReadFile(file), damaged);
    }
    EXPECT_EQ(Run({"--state", dir_ / "missing/state", "log", "/log", "error"}).status, kUnknown);
    std::filesystem::create_directory(dir_ / "state.new");  // stands in the way of the save
    std::filesystem::remove(file);
    EXPECT_EQ(Run({"--state", file, "log", "/log", "error"}).status, kUnknown);
    EXPECT_FALSE(std::filesystem::exists(file));
}

TEST(CheckLogFailure, LeavesTheStateForTheNextRun) {
    test::TempDir dir;
    FakeAgent agent({"200\n0\n\n0\n9\n10\n7\n10\n\r", "200\n1\nx\n1\n12\n10\n7\n20\n\r",
                     "301\nFile \"log\" not found\n\r"});
    std::string file = dir / "state";
    std::vector<std::string> words = {
        "--plugin", agent.PortOption(), "--state", file, "log", "/log", "x"};
    EXPECT_EQ(ProgramRun(words).status, kOk);
    std::string kept = test::ReadFile(file);
    ProgramRun run(words);
    EXPECT_EQ(run.status, kCritical);
    EXPECT_EQ(run.out, "LOG CRITICAL - the agent answered 301: File \"log\" not found\n");
    EXPECT_EQ(test::ReadFile(file), kept);
}

}  // namespace
}  // namespace zot::client
