// A scan is cut where a line ends and where the sequential scan would stand in any case: after the
// first line end that follows a character of a line. Further line ends are for the second part to
// skip, as in any block that begins with them. So the two results join without a seam.
#include "checks/logs/two_part_scan.h"

#include <errno.h>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <exception>
#include <memory>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include "base/files.h"
#include "base/peer_watch.h"
#include "base/thread.h"
#include "base/vystring.h"
#include "checks/logs/new_lines.h"

namespace zot {
namespace {

// How far from the middle to look for a line end.
constexpr size_t kCutWindow = size_t{256} << 10;

// The offset at which the scan of a file from `position` to `size` can be cut; nothing when there
// is no line end near the middle.
std::optional<int64_t> FindCut(RegularFile& file, int64_t position, int64_t size) {
    int64_t middle = position + (size - position) / 2;
    auto window = ReadBuffer<char>(kCutWindow);
    bool read = file.Seek(middle);
    ssize_t count = read ? file.Read(window.get(), kCutWindow) : 0;
    if (!file.Seek(position)) return std::nullopt;
    for (ssize_t i = 1; i < count; ++i) {
        if (IsLineEnd(window[static_cast<size_t>(i)]) &&
            !IsLineEnd(window[static_cast<size_t>(i) - 1])) {
            return middle + i + 1;
        }
    }
    return std::nullopt;
}

// The part after the cut, scanned by a thread of its own.
class SecondPart {
  public:
    SecondPart(const LineMatchers& matchers, bool findAll, const LogScanTuning& tuning, int64_t cut,
               const struct stat& fileStatus)
        : position(cut),
          status(fileStatus),
          matchers_(CopiesOf(matchers)),
          lines_(file_, fileStatus.st_size, matchers_, findAll, tuning, position, found) {}

    // False when the thread or its descriptor cannot be had.
    bool Start(const RegularFile& whole) {
        return whole.Share(file_) && file_.Seek(position) && StartThread(thread_, Run, this) == 0;
    }
    // REQUIRES that it was started. Waits for the end of the scan and returns its result.
    int64_t Join() {
        pthread_join(thread_, nullptr);
        if (failure_) std::rethrow_exception(failure_);
        errno = error_;
        return result_;
    }
    // Join, for when nobody needs the result.
    void Abandon() noexcept {
        lines_.Stop();
        pthread_join(thread_, nullptr);
    }

    int64_t position;
    LogScanFindings found;
    struct stat status;

  private:
    static LineMatchers CopiesOf(const LineMatchers& matchers) {
        LineMatchers copies;
        for (const auto& matcher : matchers) copies.push_back(matcher->Copy());
        return copies;
    }

    static void* Run(void* argument) {
        auto* part = static_cast<SecondPart*>(argument);
        WorkFor samePeer(part->peer_);
        try {
            part->result_ = part->lines_.Scan(part->status);
            part->error_ = errno;
        } catch (...) {
            part->failure_ = std::current_exception();
        }
        return nullptr;
    }

    PeerWatch* const peer_ = WorkFor::Current();
    RegularFile file_;
    LineMatchers matchers_;
    NewLines lines_;
    pthread_t thread_{};
    int64_t result_ = 0;
    int error_ = 0;
    std::exception_ptr failure_;
};

// The first part has been scanned, with `result` and the references as its results.
int64_t AddSecondPart(SecondPart& second, bool findAll, int64_t result, int64_t& position,
                      LogScanFindings& found, struct stat& status) {
    if (result < 0 || (result != 0 && !findAll)) {
        int error = errno;
        second.Abandon();
        errno = error;
        return result;
    }
    int64_t further = second.Join();
    status = second.status;
    position = second.position;
    if (further == 0) return result;
    // Only these fields: `position` may be part of what the caller has in there.
    found.foundLine = std::move(second.found.foundLine);
    found.byFirst = second.found.byFirst;
    return further;
}

}  // namespace

int64_t ScanNewLines(RegularFile& file, const LineMatchers& matchers, bool findAll,
                     const LogScanTuning& tuning, int64_t& position, LogScanFindings& found,
                     struct stat& status) {
    NewLines lines(file, status.st_size, matchers, findAll, tuning, position, found);
    if (status.st_size - position < tuning.splitFrom || std::thread::hardware_concurrency() < 2) {
        return lines.Scan(status);
    }
    std::optional<int64_t> cut = FindCut(file, position, status.st_size);
    if (!cut) return lines.Scan(status);
    SecondPart second(matchers, findAll, tuning, *cut, status);
    if (!second.Start(file)) return lines.Scan(status);
    file.EndAt(*cut);
    int64_t result;
    try {
        result = lines.Scan(status);
    } catch (...) {
        second.Abandon();
        throw;
    }
    return AddSecondPart(second, findAll, result, position, found, status);
}

}  // namespace zot
