// The fast scan beside the plain one on any log. The first four bytes choose: findAll; case, whole
// words and the kinds of one or two criteria; the size of the blocks; the longest line that is held
// (even: the log is scanned in two parts; bit 1: mapped first, a block at a time); the position.
// The criteria follow, each up to its LF, and the rest is the log.
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/mapped_bytes.h"
#include "checks/logs/log_scanner.h"
#include "fuzz/plain_log_scan.h"

namespace {

using namespace zot;

// One file for all inputs.
class LogFile {
  public:
    LogFile() : fd_(mkstemp(path_.data())) {}
    ~LogFile() { unlink(path_.c_str()); }

    const std::string& Write(std::string_view content) {
        // Cut after the new bytes: cutting a file to nothing first costs a file system much more.
        auto size = static_cast<ssize_t>(content.size());
        if (pwrite(fd_, content.data(), content.size(), 0) != size || ftruncate(fd_, size) != 0) {
            abort();
        }
        return path_;
    }

  private:
    std::string path_ = "/tmp/zot-fuzz-XXXXXX";
    int fd_;
};

std::string_view TakeLine(std::string_view& text) {
    std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    return line;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static LogFile file;
    GuardMappedBytes();
    if (size < 4) return 0;
    std::string_view log(reinterpret_cast<const char*>(data) + 4, size - 4);
    bool findAll = (data[0] & 1) != 0;
    std::vector<LogCriterion> criteria((data[0] & 2) != 0 ? 2 : 1);
    LineMatchers matchers;
    for (size_t i = 0; i < criteria.size(); ++i) {
        int kind = (data[0] >> (i == 0 ? 4 : 6)) & 3;
        criteria[i] = {TakeLine(log), static_cast<LogCriterion::Kind>(kind % 3), (data[0] & 4) != 0,
                       (data[0] & 8) != 0};
        VyString errorText;
        matchers.push_back(MakeLineMatcher(criteria[i], errorText));
        if (!matchers.back()) return 0;
    }
    LogScanTuning tuning;
    tuning.blockSize = size_t{1} + data[1];
    size_t longest = std::max<size_t>(tuning.blockSize, data[2]);
    for (const auto& matcher : matchers) longest = std::max(longest, matcher->Overlap());
    tuning.longestLine = longest;
    if (data[2] % 2 == 0) tuning.splitFrom = 0;
    if ((data[2] & 2) != 0) {
        tuning.mapFrom = 1;
        tuning.mapped = static_cast<int64_t>(tuning.blockSize);
    }

    LogScanState state;
    state.position = std::min<int64_t>(data[3], static_cast<int64_t>(log.size()));
    state.lastSize = -1;
    fuzz::PlainScan plain = fuzz::ScanPlainly(log, state.position, criteria, findAll, longest);
    LogScanFindings found = ScanTextLog(file.Write(log), matchers, findAll, state, tuning);
    if (found.result != plain.result || found.state.position != plain.position ||
        found.foundLine.View() != plain.foundLine || found.byFirst != plain.byFirst) {
        abort();
    }
    return 0;
}
