// What several modules do with files.
#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <memory>
#include <string_view>

#include "base/owners.h"

namespace zot {

// Whether the path leads to a regular file, also through links. Opens nothing.
inline bool IsRegularFile(const char* path) {
    struct stat info {};
    return stat(path, &info) == 0 && S_ISREG(info.st_mode);
}

// Opens a regular file for reading, without waiting for anybody at the other end of a fifo or a
// device that stands in its place; only for a lease that another process has on it. `status`
// becomes its status, `flags` are added to those of open. No descriptor when it cannot be opened or
// is no regular file.
UniqueFd OpenRegularFile(const char* path, struct stat& status, int flags = 0);

// Whether the path leads to a directory, also through links.
inline bool IsDirectory(const char* path) {
    struct stat info {};
    return stat(path, &info) == 0 && S_ISDIR(info.st_mode);
}

// A block to read into: set to nothing, since it is written before it is read.
template <typename Byte>
std::unique_ptr<Byte[]> ReadBuffer(size_t size) {
    return std::unique_ptr<Byte[]>(new Byte[size]);
}

// Writes the whole text to the descriptor, which must block; false, with errno, when it cannot.
inline bool WriteAll(int fd, std::string_view text) {
    while (!text.empty()) {
        ssize_t written = write(fd, text.data(), text.size());
        if (written > 0) {
            text.remove_prefix(static_cast<size_t>(written));
        } else if (written == 0 || errno != EINTR) {
            return false;
        }
    }
    return true;
}

}  // namespace zot
