#include "checks/logs/log_scanner.h"

#include <errno.h>
#include <sys/stat.h>

#include <thread>

#include "base/platform/system.h"
#include "checks/files/path.h"
#include "checks/files/regular_file.h"
#include "checks/logs/two_part_scan.h"

namespace zot {
namespace {

constexpr int kOpenAttempts = 3;

bool IsUnchanged(const LogScanState& state, const struct stat& status) {
    return state.lastSize != 0 && state.lastSize == status.st_size && state.lastModified != 0 &&
           state.lastModified == ShortModificationTime(status);
}

// A program that replaces the file may leave its place empty, or the file closed, for a moment.
bool OpenPatiently(RegularFile& file, std::string_view path, const LogScanTuning& tuning) {
    for (int attempt = 1; !file.Open(path); ++attempt) {
        if (attempt == kOpenAttempts) return false;
        std::this_thread::sleep_for(tuning.openRetry);
    }
    return true;
}

int64_t Fail(LogScanFindings& found, std::string_view message) {
    found.errorText = message;
    return -1;
}

int64_t FailNotFound(LogScanFindings& found, std::string_view path) {
    Fail(found, "File \"");
    found.errorText.Append(NamePart(path));
    found.errorText.Append("\" not found");
    return -1;
}

int64_t FailWithSystemError(LogScanFindings& found) {
    char text[256];
    SystemErrorText(errno, text, sizeof text);
    return Fail(found, text);
}

// Returns the result. Everything else is in `found`, whose state is at first that of the last scan.
int64_t Scan(std::string_view path, const LineMatchers& matchers, bool findAll,
             const LogScanTuning& tuning, LogScanFindings& found) {
    LogScanState& state = found.state;
    struct stat status {};
    if (!StatPath(path, status)) return FailNotFound(found, path);
    found.fileSize = status.st_size;
    if (IsUnchanged(state, status)) return 0;
    RegularFile file;
    if (!OpenPatiently(file, path, tuning)) return Fail(found, "Cannot open file");
    // From here on this file counts, whatever takes its place.
    if (!file.Stat(status)) return FailWithSystemError(found);
    int64_t result = 0;
    if (state.lastSize == 0) {
        // One byte before the end: a line end there is read again with the first new line.
        state.position = status.st_size - 1;
    } else {
        if (state.position > status.st_size) state.position = 0;
        if (!file.Seek(state.position)) return Fail(found, "fseek error");
        result = ScanNewLines(file, matchers, findAll, tuning, state.position, found, status);
        if (result < 0) return FailWithSystemError(found);
    }
    found.fileSize = status.st_size;
    if (result == 0 || findAll) {
        state.lastSize = status.st_size;
        state.lastModified = ShortModificationTime(status);
    }
    return result;
}

}  // namespace

LogScanFindings ScanTextLog(std::string_view path, const LineMatchers& matchers, bool findAll,
                            const LogScanState& state, const LogScanTuning& tuning) {
    LogScanFindings found;
    found.state = state;
    found.result = Scan(path, matchers, findAll, tuning, found);
    return found;
}

}  // namespace zot
