// Reads the lines by which a log has grown since it was last looked at.
//
// Nothing is remembered between two looks: the caller brings the state of the last one and takes
// the new one away. Lines end at CR and at LF. An offset in that state is the one after the last
// complete line, so a line still being written, and line ends that no line follows yet, are read
// again. Offsets are exact for lines of any length, and so is the search for a plain text; an
// expression, and the line that is reported, take a longer line by its first
// LogScanTuning::longestLine bytes.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "base/vystring.h"
#include "checks/logs/line_matcher.h"

namespace zot {

struct LogScanState {
    int64_t position = 0;      // offset where the next scan starts
    int64_t lastSize = 0;      // of the file at the last scan; 0 if there was none
    int64_t lastModified = 0;  // likewise, in the 32-bit seconds of all file times; 0 if unknown
};

struct LogScanFindings {
    // 0 when no line matched; otherwise the offset where the bytes consumed for the line begin
    // (including line ends before it that nobody counted) plus the value of the match; -1 on
    // failure.
    int64_t result = 0;
    LogScanState state;     // for the next scan
    VyString foundLine;     // the last one that matched
    bool byFirst = false;   // the first matcher took it
    int64_t fileSize = -1;  // at the end of the scan; -1 without a file
    VyString errorText;     // for a failure
};

struct LogScanTuning {
    size_t blockSize = size_t{256} << 10;   // read at once; fits a second-level cache
    size_t longestLine = size_t{16} << 20;  // not below blockSize
    int64_t splitFrom = int64_t{32} << 20;  // unread bytes that are worth a second thread
    int64_t mapFrom = int64_t{4} << 20;     // unread bytes that are worth mapping
    int64_t mapped = int64_t{8} << 20;      // mapped at once
    std::chrono::milliseconds openRetry{1000};
};

// Looks for lines that one of the matchers takes; the first is asked first. With `findAll` the scan
// goes to the end of the file and the last match counts, otherwise it stops at the first.
//
// A first scan (lastSize 0) only notes where the file ends. A file with the size and time of the
// last scan is not opened; one that has become shorter than the position is read from its start. A
// match without `findAll` leaves size and time in the state unchanged: the next scan goes on. Only
// regular files are opened; anything else counts as a file that cannot be opened.
LogScanFindings ScanTextLog(std::string_view path, const LineMatchers& matchers, bool findAll,
                            const LogScanState& state, const LogScanTuning& tuning = {});

}  // namespace zot
