// Compares the content of two files, and searches one for a text or for the content of the other.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace zot {

// The largest file, in bytes, that may be searched for.
constexpr int64_t kMaxSoughtFile = 0x800000;

// Searches bytes. With `wholeWord` a hit counts only without a letter or digit on either side.
// Returns whether it was found; nothing for an empty text or path, or a file that cannot be opened
// or read.
std::optional<bool> FindInFile(std::string_view path, std::string_view text, bool caseSensitive,
                               bool wholeWord);

// Searches file 1 for the whole content of file 2, which is held in memory. True when file 2 is
// empty, nothing when it is larger than kMaxSoughtFile; otherwise as FindInFile.
std::optional<bool> FindFileInFile(std::string_view path1, std::string_view path2);

// Whether the files hold the same bytes up to the end of the shorter one; nothing when one cannot
// be opened or read.
std::optional<bool> SameContent(std::string_view path1, std::string_view path2);

}  // namespace zot
