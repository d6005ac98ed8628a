// What the two text-log tests share: the file, what its lines are searched for, and the part of the
// reply that both begin with.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "base/vystring.h"
#include "checks/logs/line_matcher.h"
#include "checks/logs/log_scanner.h"
#include "protocol/reply.h"

namespace zot {

struct LogWatch {
    VyString path;
    LineMatchers matchers;
    LogScanState state;
    bool findAll = false;
};

// A flag of these tests is true for every number but 0.
bool NumberLine(std::string_view params, int32_t line);

// Reads the state from three lines, beginning with `line`. False when one is not a number.
bool ReadState(std::string_view params, int32_t line, LogScanState& state);

// Scans and, without findAll, scans again to see whether another match follows. Builds the part of
// the reply that both tests share, with at most `lineLimit` bytes of the line found; `byFirst`
// becomes true if the first matcher took it. Returns false when the scan failed and the reply is
// complete.
bool AnswerScan(const LogWatch& watch, size_t lineLimit, bool& byFirst, Reply& reply);

}  // namespace zot
