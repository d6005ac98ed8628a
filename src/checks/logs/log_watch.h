// What the two text-log tests share: the file that is watched, what its lines are tested for, and
// the part of the reply that both begin with.
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

// Flags of these tests are true for every number but 0.
bool NumberLine(std::string_view params, int32_t line);

// Reads the state from three lines, the first of which is `line`. False when one is no number.
bool ReadState(std::string_view params, int32_t line, LogScanState& state);

// Scans, and without findAll scans again to see whether another match follows. Builds the part of
// the reply that both tests share, with at most `lineLimit` bytes of the line found; `byFirst`
// tells whether the first matcher took it. False when that is the whole reply, as the scan failed.
bool AnswerScan(const LogWatch& watch, size_t lineLimit, bool& byFirst, Reply& reply);

}  // namespace zot
