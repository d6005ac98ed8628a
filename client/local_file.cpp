#include "client/local_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "base/files.h"
#include "base/owners.h"
#include "base/vystring.h"
#include "client/agent_socket.h"

namespace zot::client {
namespace {

// Appends to `content` up to the end of the file, more than `maxSize` bytes or, if `oneLine`, the
// first line end. False with errno set.
bool Read(int fd, size_t maxSize, bool oneLine, std::string& content) {
    char buffer[65536];
    while (content.size() <= maxSize && !(oneLine && content.find('\n') != std::string::npos)) {
        ssize_t got = read(fd, buffer, sizeof buffer);
        if (got == 0) break;
        if (got > 0) {
            content.append(buffer, static_cast<size_t>(got));
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

}  // namespace

std::string FileError(std::string_view action, const std::string& path, int errorNumber) {
    return "cannot " + std::string(action) + " " + path + ": " + ErrorText(errorNumber);
}

bool ReadWholeFile(const std::string& path, size_t maxSize, std::string& content,
                   std::string& error) {
    struct stat status = {};
    content.clear();
    // Non-blocking, so that a named pipe is refused instead of waited for.
    UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    bool found = file && fstat(file.Get(), &status) == 0;
    if (found && !S_ISREG(status.st_mode)) {
        error = path + " is not a regular file";
    } else if (!found || !Read(file.Get(), maxSize, false, content)) {
        error = FileError("read", path, errno);
    } else if (content.size() > maxSize) {
        error = path + " has more than " + std::to_string(maxSize) + " bytes";
    } else {
        return true;
    }
    return false;
}

bool ReadFirstLine(const std::string& path, std::string& line, std::string& error) {
    constexpr size_t kMaxLine = 65536;
    line.clear();
    UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file || !Read(file.Get(), kMaxLine, true, line)) {
        error = FileError("read password file", path, errno);
        return false;
    }
    line.resize(std::min(line.find('\n'), line.size()));
    line = std::string(TrimView(line));  // as the agent reads its own
    return true;
}

bool ReplaceFile(const std::string& path, std::string_view content, std::string& error) {
    std::string temporary = path + ".new";
    UniqueFd file = CreateAnew(temporary.c_str());  // a killed run may have left one
    if (!file) {
        error = FileError("create", temporary, errno);
        return false;
    }
    if (WriteAll(file.Get(), content) && fsync(file.Get()) == 0 &&
        rename(temporary.c_str(), path.c_str()) == 0) {
        return true;
    }
    error = FileError("write", path, errno);
    unlink(temporary.c_str());
    return false;
}

}  // namespace zot::client
