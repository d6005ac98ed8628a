// The sum of the sizes of the files in a folder, optionally with everything below it.
#pragma once

#include <cstdint>
#include <string_view>

namespace zot {

// If the path leads to a folder, sums all its files; otherwise the last part of the path is a mask
// for the names of the files in the folder before it. Hidden and special files count; symbolic
// links are neither followed nor counted. Returns bytes, or -1 when the folder cannot be listed or
// the sum cannot be found out. A folder below that the agent may not read adds nothing.
int64_t FolderSize(std::string_view path, bool recurse);

}  // namespace zot
