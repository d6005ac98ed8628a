// File helpers that several modules share.
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

// Opens a regular file for reading. Never waits for the other end of a fifo or for a device in its
// place, only for a lease that another process holds. Fills `status`; adds `flags` to those of
// open. Returns no descriptor when the file cannot be opened or is not a regular one.
UniqueFd OpenRegularFile(const char* path, struct stat& status, int flags = 0);

// Creates a file that only its owner can use, open for writing. Fails, with errno, when anything
// has that name, even a link.
UniqueFd CreateExclusively(const char* path);

// The same, but first removes what has the name: a left-over file, or a planted link. A folder,
// which may not be empty, gets another name.
UniqueFd CreateAnew(const char* path);

// The same, and locks the file (flock). Fails while a process of this user, or of root, holds a
// lock on the one that is there. Locks of other users do not count: they could keep the name for
// ever.
UniqueFd CreateLocked(const char* path);

// Whether the path leads to the open file, and not through a link. Async-signal-safe.
bool LeadsTo(const char* path, int fd) noexcept;

// Whether the path leads to a directory, also through links.
inline bool IsDirectory(const char* path) {
    struct stat info {};
    return stat(path, &info) == 0 && S_ISDIR(info.st_mode);
}

// A block to read into, left uninitialised because it is written before it is read.
template <typename Byte>
std::unique_ptr<Byte[]> ReadBuffer(size_t size) {
    return std::unique_ptr<Byte[]>(new Byte[size]);
}

// Writes the whole text to the descriptor, which must be blocking; false, with errno, on failure.
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
