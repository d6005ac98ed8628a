// Scans an open log block by block, from a position to its end.
#pragma once

#include <sys/stat.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "checks/files/regular_file.h"
#include "checks/logs/line_matcher.h"
#include "checks/logs/log_scanner.h"

namespace zot {

class NewLines {
  public:
    // REQUIRES: the file is at `position`; all references outlive the object.
    NewLines(RegularFile& file, int64_t fileSize, const LineMatchers& matchers, bool findAll,
             const LogScanTuning& tuning, int64_t& position, LogScanFindings& found);

    // Soon ends a Scan in another thread, whose findings are then worthless.
    void Stop() noexcept { stopped_.store(true, std::memory_order_relaxed); }

    // Moves `position` past each line. Returns as ScanTextLog; -1 with errno. `status` becomes that
    // of the file just before its end was found, so that anything written later shows as a
    // difference.
    int64_t Scan(struct stat& status);

  private:
    void MakeRoom(size_t needed);
    void PassLinesWithoutMatch();
    void TakeBytes(size_t fresh);
    void TakeLines(std::string_view lines);
    LineMatch FindMatch(std::string_view lines, bool& byFirst) const;
    void Report(int64_t result, std::string_view line, bool byFirst);
    void DropFront(size_t count);

    void BeginLongLine();
    void TakeLongLine(size_t fresh);
    void EndLongLine(size_t lineEnd);

    RegularFile& file_;
    const LineMatchers& matchers_;
    bool findAll_;
    std::atomic<bool> stopped_{false};
    size_t blockSize_;
    size_t longestLine_;
    const int64_t mapFrom_;
    const int64_t mapped_;
    const int64_t size_;  // of the file when the scan began
    int64_t& position_;
    LogScanFindings& found_;
    int64_t result_ = 0;
    int blocksWithoutMatch_;  // since the last match

    // Begins with a line whose end has not been read yet.
    std::unique_ptr<char[]> buffer_;
    size_t capacity_ = 0;
    size_t used_ = 0;
    int64_t offset_;  // in the file, of the first byte of the buffer

    // For a line too long to be held, the buffer has its first longestLine_ bytes and, from
    // windowBegin on, the bytes read last.
    struct LongLine {
        bool active = false;
        size_t overlap = 0;
        size_t windowBegin = 0;
        int64_t windowOffset = 0;     // in the line
        std::vector<int64_t> values;  // of each matcher, 0 without a match
    };
    LongLine long_;
};

}  // namespace zot
