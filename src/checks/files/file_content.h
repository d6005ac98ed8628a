// Comparing the content of two files, and searching one for a text or for the content of the other.
#pragma once

#include <cstdint>
#include <string_view>

namespace zot {

// The largest file, in bytes, whose content is searched for.
constexpr int64_t kMaxSoughtFile = 0x800000;

// Searches as bytes. `wholeWord` counts a hit only where no letter or digit stands at either side.
// Returns a positive value when found, 0 when not, and -1 for an empty text or path and for a file
// that cannot be opened or read.
int FindInFile(std::string_view path, std::string_view text, bool caseSensitive, bool wholeWord);

// Searches file 1 for the whole content of file 2, which is held in memory. 1 when file 2 is
// empty, -1 when it is larger than kMaxSoughtFile; otherwise as FindInFile.
int FindFileInFile(std::string_view path1, std::string_view path2);

// 1 when the files hold the same bytes as far as the shorter one goes, 0 when they differ there,
// -1 when one cannot be opened or read.
int SameContent(std::string_view path1, std::string_view path2);

}  // namespace zot
