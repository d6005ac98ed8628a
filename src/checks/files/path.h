// Operations on the text of a path, and questions that one stat answers.
//
// Paths are bytes; "/" separates, nothing else is special. Returned views point into the argument.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <ctime>
#include <string_view>

#include "base/vystring.h"

namespace zot {

// 1-based position of the last character of `text` that belongs to `set`, 0 when none does.
int32_t LastCharOf(std::string_view set, std::string_view text) noexcept;

// Everything up to and including the last "/"; empty when there is none.
std::string_view DirectoryPart(std::string_view path) noexcept;
// Everything after the last "/", 4095 characters at most.
std::string_view NamePart(std::string_view path) noexcept;
// The path with a "/" at its end; an empty path becomes "/".
VyString WithSlash(std::string_view path);

// stat and lstat of a path that need not be NUL-terminated. False, with errno, on failure.
bool StatPath(std::string_view path, struct stat& status);
bool LinkStatPath(std::string_view path, struct stat& status);

// Whether the path leads to a folder, even through symbolic links. Also true when that is unknown
// although the agent may look; then opening it gives the answer.
bool MayBeDirectory(std::string_view path);
// The modification time of a status, as the 32-bit value that comparisons of times use.
int32_t ShortModificationTime(const struct stat& status) noexcept;
// Size in bytes of the file that the path leads to; -1 on failure.
int64_t FileSize(std::string_view path);

// Size and times of the entry itself: a link is not followed. False, with the values unchanged, for
// an empty path or a missing entry.
bool FileInfo(std::string_view path, int64_t& size, time_t& changeTime, time_t& modificationTime);

}  // namespace zot
