#include "client/log_scan.h"

#include "base/numbers.h"
#include "base/vystring.h"

namespace zot::client {

std::vector<std::string> ScanParams(const std::string& file, const std::string& pattern,
                                    const ScanPosition& position, Find find) {
    return {file,
            pattern,
            std::to_string(position.position),
            std::to_string(position.lastSize),
            std::to_string(position.lastModified),
            "0",
            find == Find::kLast ? "1" : "0",
            "0",
            "0"};
}

bool TakeScan(const Answer& answer, Scan& scan, ScanPosition& position) {
    constexpr size_t kReplyLines = 7;
    if (answer.lines.size() < kReplyLines) return false;
    auto number = [&](size_t line) { return ToInt64(TrimView(answer.lines[line])); };
    scan.found = number(0) != 0;
    scan.line = answer.lines[1];
    scan.more = answer.lines[2] == "1";
    position = {number(3), number(4), number(5)};
    if (position.lastSize == 0) position = kFromTheStart;
    return true;
}

}  // namespace zot::client
