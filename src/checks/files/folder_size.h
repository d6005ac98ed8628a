// The sum of the sizes of the files in a folder, optionally with everything below it.
#pragma once

#include <cstdint>
#include <string_view>

namespace zot {

// A path of a folder sums all its files; any other path is a folder and, as its last part, a mask
// for the file names. Hidden and special files count, symbolic links are neither followed nor
// counted. Returns bytes, or -1 when the folder cannot be listed or the sum cannot be found out. A
// folder below it that the agent may not read adds nothing.
int64_t FolderSize(std::string_view path, bool recurse);

}  // namespace zot
