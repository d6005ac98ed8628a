#include "client/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "base/owners.h"
#include "base/platform.h"

namespace zot::client {
namespace {

int WriteAndSync(int fd, std::string_view content) {
    while (!content.empty()) {
        ssize_t written = write(fd, content.data(), content.size());
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) return 0;
        content.remove_prefix(static_cast<size_t>(written));
    }
    return fsync(fd) == 0 ? 1 : 0;
}

}  // namespace

std::string FileError(std::string_view action, const std::string& path, int errorNumber) {
    char reason[256];
    SystemErrorText(errorNumber, reason, sizeof reason);
    return "cannot " + std::string(action) + " " + path + ": " + reason;
}

int ReadWholeFile(const std::string& path, size_t maxSize, std::string& content,
                  std::string& error) {
    struct stat status = {};
    // Not blocking: a named pipe is refused instead of waited for.
    UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file || fstat(file.Get(), &status) != 0) {
        error = FileError("read", path, errno);
        return 0;
    }
    if (!S_ISREG(status.st_mode)) {
        error = path + " is not a regular file";
        return 0;
    }
    content.clear();
    char buffer[65536];
    while (content.size() <= maxSize) {
        ssize_t got = read(file.Get(), buffer, sizeof buffer);
        if (got == 0) return 1;
        if (got > 0) {
            content.append(buffer, static_cast<size_t>(got));
        } else if (errno != EINTR) {
            error = FileError("read", path, errno);
            return 0;
        }
    }
    error = path + " has more than " + std::to_string(maxSize) + " bytes";
    return 0;
}

int ReplaceFile(const std::string& path, std::string_view content, std::string& error) {
    std::string temporary = path + ".new";
    unlink(temporary.c_str());  // left over from a run that was killed
    UniqueFd file(open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                       S_IRUSR | S_IWUSR));
    if (!file) {
        error = FileError("create", temporary, errno);
        return 0;
    }
    if (WriteAndSync(file.Get(), content) && rename(temporary.c_str(), path.c_str()) == 0) return 1;
    error = FileError("write", path, errno);
    unlink(temporary.c_str());
    return 0;
}

}  // namespace zot::client
