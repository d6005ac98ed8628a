#include "config/log_file.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/owners.h"

namespace zot {
namespace {

// The file that a path names: without a directory, one beside the configuration file. That file's
// directory keeps its "/", so the path holds two in a row. False if it is too long.
bool ResolveLogPath(const AgentSettings& settings, std::string_view path, char (&full)[PATH_MAX]) {
    std::string_view directory;
    if (path.find('/') == std::string_view::npos) {
        std::string_view config(settings.configPath);
        directory = config.substr(0, config.rfind('/') + 1);
    }
    if (directory.size() + path.size() + 2 > sizeof(full)) return false;
    char* end = std::copy(directory.begin(), directory.end(), full);
    if (!directory.empty()) *end++ = '/';
    *std::copy(path.begin(), path.end(), end) = '\0';
    return true;
}

// A nearly full pipe takes a part of a text too long to be written whole, but never a part of a
// line.
bool WriteLines(int fd, std::string_view lines) noexcept {
    while (!lines.empty()) {
        std::string_view line = lines.substr(0, lines.find('\n') + 1);
        if (line.empty()) line = lines;
        if (write(fd, line.data(), line.size()) < 0) return false;
        lines.remove_prefix(line.size());
    }
    return true;
}

int Write(int fd, std::span<const iovec> parts) noexcept {
    struct stat info {};
    if (fstat(fd, &info) != 0) return errno;
    if (S_ISFIFO(info.st_mode)) {
        for (const iovec& part : parts) {
            if (!WriteLines(fd, {static_cast<const char*>(part.iov_base), part.iov_len})) {
                return errno;
            }
        }
        return 0;
    }
    size_t size = 0;
    for (const iovec& part : parts) size += part.iov_len;
    ssize_t written = parts.size() == 1 ? write(fd, parts[0].iov_base, parts[0].iov_len)
                                        : writev(fd, parts.data(), static_cast<int>(parts.size()));
    if (written < 0) return errno;
    if (static_cast<size_t>(written) == size) return 0;
    return S_ISCHR(info.st_mode) ? EAGAIN : ENOSPC;  // a terminal that is held up
}

}  // namespace

int AppendToLog(const AgentSettings& settings, std::string_view path,
                std::span<const iovec> parts) noexcept {
    if (path.empty() || parts.empty()) return 0;
    char full[PATH_MAX];
    if (!ResolveLogPath(settings, path, full)) return ENAMETOOLONG;
    const int before = errno;
    // Neither a named pipe without a reader nor a terminal that was stopped may stop the agent.
    UniqueFd fd(
        open(full, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0640));
    int error = fd ? Write(fd.Get(), parts) : errno;
    errno = before;
    return error;
}

void AppendLogLine(const AgentSettings& settings, std::string_view path, std::string_view line) {
    const iovec whole = {const_cast<char*>(line.data()), line.size()};
    if (!line.empty()) AppendToLog(settings, path, {&whole, 1});
}

}  // namespace zot
