#include "checks/logs/log_scanner.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "base/mapped_bytes.h"
#include "base/owners.h"
#include "tests/support/file_tree.h"
#include "tests/support/temp_dir.h"

namespace zot {
namespace {

using Kind = LogCriterion::Kind;

LineMatchers Prepare(const std::vector<LogCriterion>& criteria) {
    LineMatchers matchers;
    VyString errorText;
    for (const LogCriterion& criterion : criteria) {
        matchers.push_back(MakeLineMatcher(criterion, errorText));
        EXPECT_TRUE(matchers.back()) << errorText.View();
    }
    return matchers;
}

class Scanner {
  public:
    explicit Scanner(const std::vector<LogCriterion>& criteria) : matchers_(Prepare(criteria)) {}

    int64_t Scan(std::string_view content, bool findAll = true) {
        path_ = folder_.Write("log", content);
        return Again(findAll);
    }
    int64_t Again(bool findAll = true) {
        found = ScanTextLog(path_, matchers_, findAll, state, tuning);
        state = found.state;
        return found.result;
    }

    LogScanState state{0, 1, 0};
    LogScanFindings found;
    LogScanTuning tuning;

  private:
    test::TempDir folder_;
    std::string path_;
    LineMatchers matchers_;
};

const LogCriterion kText{"hit", Kind::kText, true, false};

TEST(LogScanner, FirstScanOnlyNotesTheEnd) {
    Scanner scanner({kText});
    scanner.state = {};
    EXPECT_EQ(scanner.Scan("hit here.\nhit there.\n"), 0);
    EXPECT_EQ(scanner.state.position, 20);
    EXPECT_EQ(scanner.state.lastSize, 21);
    EXPECT_EQ(scanner.found.fileSize, 21);
    // An empty file cannot show that it was scanned: its next scan is a first one again.
    scanner.state = {};
    EXPECT_EQ(scanner.Scan(""), 0);
    EXPECT_EQ(scanner.state.position, -1);
    EXPECT_EQ(scanner.Scan("hit\n"), 0);
    EXPECT_EQ(scanner.state.position, 3);
}

TEST(LogScanner, UnchangedFilesAreNotOpened) {
    test::TempDir folder;
    std::string path = folder.Write("log", "hit\n");
    test::SetModificationTime(path, 1000);
    LineMatchers matchers = Prepare({kText});
    struct {
        LogScanState state;
        bool opened;
    } cases[] = {{{0, 4, 1000}, false},
                 {{0, 4, 0}, true},
                 {{0, 3, 1000}, true},
                 {{0, 4, 999}, true},
                 {{-5, 4, 1000}, false}};
    for (const auto& c : cases) {
        LogScanFindings found = ScanTextLog(path, matchers, true, c.state);
        EXPECT_EQ(found.result, c.opened ? 1 : 0);
        EXPECT_EQ(found.fileSize, 4);
        EXPECT_EQ(found.state.position, c.opened ? 4 : c.state.position);
    }
}

TEST(LogScanner, PositionsThatNoScanLeft) {
    Scanner scanner({kText});
    for (int64_t position : {int64_t{6}, int64_t{5000}, INT64_MAX}) {
        scanner.state = {position, -1, -1};
        EXPECT_EQ(scanner.Scan("a hit"), 0);
        EXPECT_EQ(scanner.state.position, 0) << "read from the start";
    }
    scanner.state = {5, 1, 1};
    EXPECT_EQ(scanner.Scan("a hit"), 0);
    EXPECT_EQ(scanner.state.position, 5);
    for (int64_t position : {int64_t{-1}, INT64_MIN}) {
        scanner.state = {position, 1, 1};
        EXPECT_EQ(scanner.Scan("hit\n"), -1);
        EXPECT_EQ(scanner.found.errorText.View(), "fseek error");
        EXPECT_EQ(scanner.state.position, position);
    }
}

TEST(LogScanner, LinesOfAnyLengthAreCountedInBoundedMemory) {
    size_t length = size_t{40} << 20;
    std::string content = "\n" + std::string(length, 'x') + " hit\nhit\n" + std::string(100, 'y');
    Scanner text({{"hit", Kind::kText, true, true}});
    EXPECT_EQ(text.Scan(content, false), static_cast<int64_t>(length) + 2);
    EXPECT_EQ(text.found.foundLine.View(), std::string(text.tuning.longestLine, 'x'));
    EXPECT_EQ(text.state.position, static_cast<int64_t>(length) + 6);
    EXPECT_EQ(text.Again(), static_cast<int64_t>(length) + 7);
    // Expressions see no more of it than is held.
    Scanner search({{"'hit'", Kind::kSearch, true, false}});
    EXPECT_EQ(search.Scan(content, false), static_cast<int64_t>(length) + 7);
}

// A hole is one line of zeros, however long: it counts as before, but nobody reads it.
TEST(LogScanner, HolesCostNothingAndCountAsZeros) {
    constexpr int64_t kTerabyte = int64_t{1} << 40;
    test::TempDir folder;
    std::string path = folder / "log";
    test::MakeFile(path, kTerabyte);
    FILE* file = std::fopen(path.c_str(), "a");
    std::fputs("hit\nno\n", file);
    std::fclose(file);
    ASSERT_EQ(truncate(path.c_str(), 2 * kTerabyte), 0);
    for (bool findAll : {false, true}) {
        LineMatchers matchers = Prepare({{"hit", Kind::kText, true, true}});
        LogScanFindings found = ScanTextLog(path, matchers, findAll, {0, 1, 1});
        EXPECT_EQ(found.result, kTerabyte + 1);
        EXPECT_EQ(found.state.position, kTerabyte + (findAll ? 7 : 4));
    }
}

TEST(LogScanner, OnlyRegularFilesAreOpened) {
    test::TempDir folder;
    LineMatchers matchers = Prepare({kText});
    LogScanTuning tuning;
    tuning.openRetry = std::chrono::milliseconds(20);
    const LogScanState state{0, 1, 0};
    std::string path = folder / "log";
    LogScanFindings found = ScanTextLog(path, matchers, true, state, tuning);
    EXPECT_EQ(found.result, -1);
    EXPECT_EQ(found.errorText.View(), "File \"log\" not found");
    EXPECT_EQ(found.fileSize, -1);
    test::MakeFifo(path);
    // A writer that waits for a reader keeps waiting.
    std::atomic<bool> hasReader{false};
    std::thread writer([&] {
        UniqueFd fifo(open(path.c_str(), O_WRONLY | O_CLOEXEC));
        hasReader = true;
    });
    auto begin = std::chrono::steady_clock::now();
    found = ScanTextLog(path, matchers, true, state, tuning);
    EXPECT_EQ(found.result, -1);
    EXPECT_EQ(found.errorText.View(), "Cannot open file");
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 2 * tuning.openRetry);
    EXPECT_FALSE(hasReader);
    UniqueFd reader(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    writer.join();
    // A log that appears while the scan waits is found.
    tuning.openRetry = std::chrono::seconds(1);
    std::string next = folder.Write("next", "hit\n");
    std::thread mover([&] { std::rename(next.c_str(), path.c_str()); });
    EXPECT_EQ(ScanTextLog(path, matchers, true, state, tuning).result, 1);
    mover.join();
}

// As the usual rotation by copying does it, at any moment of a scan.
TEST(LogScanner, ALogMayBeCutWhileItIsMapped) {
    GuardMappedBytes();
    test::TempDir folder;
    std::string lines;
    while (lines.size() < size_t{2} << 20) lines += "nothing of interest here\n";
    const std::string path = folder.Write("log", lines);
    std::atomic<bool> ended{false};
    std::thread writer([&] {
        UniqueFd file(open(path.c_str(), O_WRONLY | O_CLOEXEC));
        while (!ended) {
            if (ftruncate(file.Get(), 0) != 0) break;
            if (pwrite(file.Get(), lines.data(), lines.size(), 0) < 0) break;
        }
    });
    LineMatchers matchers = Prepare({kText});
    LogScanTuning tuning;
    tuning.mapFrom = 1;
    for (int i = 0; i < 300; ++i) {
        LogScanFindings found = ScanTextLog(path, matchers, true, {0, 1, 0}, tuning);
        EXPECT_EQ(found.result, 0);
        EXPECT_LE(found.state.position, static_cast<int64_t>(lines.size()));
    }
    ended = true;
    writer.join();
}

}  // namespace
}  // namespace zot
