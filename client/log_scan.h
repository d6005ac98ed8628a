// Finds the new lines of a log with TEST-TextLog, one reply after another.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "client/request_packet.h"

namespace zot::client {

// What TEST-TextLog takes and returns; zero for a log that was never scanned.
struct ScanPosition {
    int64_t position = 0;
    int64_t lastSize = 0;
    int64_t lastModified = 0;
    bool operator==(const ScanPosition&) const = default;
};

// For a log that was empty or not there. For the agent a size of 0 means that the log was never
// scanned, and it would skip the first lines. Any other wrong size makes it read.
inline constexpr ScanPosition kFromTheStart = {0, 1, 0};

enum class Find { kNext, kLast };

// One reply: whether a line was found, which one, and whether more follow at once.
struct Scan {
    bool found = false;
    bool more = false;
    std::string line;
};

std::vector<std::string> ScanParams(const std::string& file, const std::string& pattern,
                                    const ScanPosition& position, Find find);
// Reads a reply 200 and moves the position after the line; false when the reply is too short.
bool TakeScan(const Answer& answer, Scan& scan, ScanPosition& position);

}  // namespace zot::client
