// Lines are counted once, whoever asks and whatever breaks off.
#include "exporter/log_counter.h"

#include <gtest/gtest.h>

#include "tests/client/fake_agent.h"
#include "tests/support/full_disk.h"
#include "tests/support/temp_dir.h"

namespace zot::exporter {
namespace {

using client::Failure;
using std::chrono::milliseconds;

// A reply to TEST-TextLog: a line was found at this position, and more follow.
std::string Found(int position, bool more) {
    std::string at = std::to_string(position);
    return "200\n1\nline\n" + std::string(more ? "1" : "0") + "\n" + at + "\n100\n5\n100\n\r";
}
const std::string kNothing = "200\n0\n\n0\n50\n100\n5\n100\n\r";

class LogCounterTest : public testing::Test {
  protected:
    // Counts by so many questions at once, and returns the results in their order.
    std::vector<LogCount> Count(const client::FakeAgent& agent, int times, int limitMs = 20000) {
        client::Engine engine({.perHost = 4});
        Worker files;
        LogCounter counter(engine, files);
        std::vector<LogCount> counts;
        engine.Post([&] {
            for (int i = 0; i < times; ++i) {
                LogQuestion question = {
                    state_.Path(), "web1",  {"127.0.0.1", agent.Port(), client::kTestPassword},
                    "/log",        "error", client::Deadline::Clock::now() + milliseconds(limitMs)};
                counter.Count(question, [&, times](LogCount count) {
                    counts.push_back(std::move(count));
                    if (counts.size() == static_cast<size_t>(times)) engine.Stop();
                });
            }
        });
        engine.RunUntilStopped();
        return counts;
    }
    test::TempDir state_;
};

TEST_F(LogCounterTest, AnyNumberOfProbesShareOneCounter) {
    client::FakeAgent agent(
        {Found(10, true), Found(20, true), kNothing, Found(60, false), kNothing});
    std::vector<LogCount> counts = Count(agent, 3);
    EXPECT_EQ(counts[0].matches, 2);
    EXPECT_EQ(counts[1].matches, 3);
    EXPECT_EQ(counts[2].matches, 3);
    // Each question goes on where the one before ended.
    std::vector<std::string> positions;
    for (const std::string& text : agent.Requests()) {
        std::istringstream lines(text);
        std::string line;
        for (int i = 0; i < 4; ++i) std::getline(lines, line);
        positions.push_back(line);
    }
    EXPECT_EQ(positions, (std::vector<std::string>{"0", "10", "20", "50", "60"}));
    // A process that is started again goes on, too.
    EXPECT_EQ(Count(agent, 1)[0].matches, 3);
}

TEST_F(LogCounterTest, WhatWasCountedBeforeAFailureStaysCounted) {
    client::FakeAgent agent({Found(10, true), "301\nFile is gone\n\r", Found(20, false)});
    LogCount count = Count(agent, 1)[0];
    EXPECT_EQ(count.failure, Failure::kAgentCode);
    EXPECT_EQ(count.message, "the agent answered 301: File is gone");
    EXPECT_EQ(Count(agent, 1)[0].matches, 2);
}

TEST_F(LogCounterTest, WhoeverWaitsKeepsHisDeadline) {
    client::FakeAgent silent([](int fd, const std::string&, const std::string&) {
        char byte;
        recv(fd, &byte, 1, 0);
    });
    for (const LogCount& count : Count(silent, 3, 300)) {
        EXPECT_EQ(count.failure, Failure::kTimeout) << count.message;
    }
}

TEST_F(LogCounterTest, NothingIsShownThatIsNotOnDisk) {
    client::FakeAgent agent({kNothing, Found(70, false)});
    EXPECT_EQ(Count(agent, 1)[0].failure, Failure::kNone);
    LogCount count;
    {
        test::FullDisk full;
        count = Count(agent, 1)[0];
    }
    EXPECT_EQ(count.failure, Failure::kLocal) << count.matches;
    EXPECT_EQ(count.message.find("cannot write"), 0U) << count.message;
}

}  // namespace
}  // namespace zot::exporter
