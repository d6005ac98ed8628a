// Scans an open log: with one thread or, where much of it is unread, with two.
#pragma once

#include <sys/stat.h>

#include <cstdint>

#include "checks/files/regular_file.h"
#include "checks/logs/line_matcher.h"
#include "checks/logs/log_scanner.h"

namespace zot {

// Scans from `position`, where the file is, to its end, as NewLines::Scan does and with the same
// results. REQUIRES: `status` is the file's.
int64_t ScanNewLines(RegularFile& file, const LineMatchers& matchers, bool findAll,
                     const LogScanTuning& tuning, int64_t& position, LogScanFindings& found,
                     struct stat& status);

}  // namespace zot
