// Counts the entries of a folder, optionally with those of the folders below it.
#pragma once

#include <cstdint>
#include <string_view>

namespace zot {

// Numbered as requests carry them.
enum class CountMode : uint32_t {
    kAllFiles = 0,     // everything except folders and links
    kOlderThan = 1,    // of these, modified more than `value` minutes ago, counted in 32 bits
    kNewerThan = 2,    // modified less than `value` minutes ago
    kBiggerThan = 3,   // of more than `value` bytes
    kSmallerThan = 4,  // of less than `value` bytes
    kSubFolders = 5,   // folders instead
};
constexpr uint32_t kCountModes = 6;

// Counts what matches `mask`. Returns -1 when the folder cannot be listed or the count cannot be
// found out. A folder below that the agent may not read adds nothing.
//
// Without recursion, a folder where nothing matches is searched for a plain folder or file; without
// one the result is -1. With recursion, only plain folders (not hidden, not a link, writable for
// the agent) are entered, and a folder with no plain entry at all gives -1 whatever was counted in
// it; below the first folder that means it adds nothing.
int64_t CountFiles(std::string_view folder, std::string_view mask, bool recurse, CountMode mode,
                   int64_t value);

}  // namespace zot
