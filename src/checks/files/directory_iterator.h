// Goes through a folder entry by entry: those that match a wildcard mask, with an attribute word
// that an attribute mask allows. Makes one lstat for each entry that may still be returned, and
// asks for the read-only bit only where it matters.
#pragma once

#include <cstdint>
#include <string_view>

#include "base/vystring.h"
#include "checks/files/directory.h"
#include "checks/files/name_mask.h"

namespace zot {

// Attribute bits. A regular file has none of its own; a link also carries kAttrSystem.
constexpr int32_t kAttrReadOnly = 1;    // the agent itself cannot write the entry
constexpr int32_t kAttrHidden = 2;      // the name begins with ".", but is neither "." nor ".."
constexpr int32_t kAttrSystem = 4;      // neither a folder nor a regular file
constexpr int32_t kAttrDirectory = 16;  // a folder
constexpr int32_t kAttrLink = 64;       // a symbolic link

// Attribute masks: the attributes that a returned entry may have.
constexpr int32_t kFindAll = 63;
constexpr int32_t kFindNoDirectories = 47;

struct FindOptions {
    enum class Kinds : uint8_t { kAll, kDirectories, kNoDirectories };
    Kinds kinds = Kinds::kAll;
    // Sets the read-only bit even where the attribute mask accepts both; costs a call per entry.
    bool reportReadOnly = false;
};

struct FindRecord {
    int64_t mtime = 0;
    int64_t changeTime = 0;
    int64_t size = 0;
    int32_t attributes = 0;  // kAttrReadOnly only where asked for
    char name[256] = "";     // NUL-terminated
    uint16_t mode = 0;

    // The state of the iteration; not for callers.
    Directory directory;
    int32_t exclusion = 0;
    NameMask mask;
    FindOptions options;
};

// Opens the folder (empty: the current working directory) and fills the record with its first
// acceptable entry. An entry is acceptable when its attributes lie within `attributeMask`; no mask
// reaches the link bit, so links are never returned. False, with the folder closed, when it holds
// none or cannot be opened.
bool FindFirst(std::string_view directory, std::string_view mask, int32_t attributeMask,
               FindRecord& record, FindOptions options = {});
// Fills the record with the next acceptable entry; false at the end.
bool FindNext(FindRecord& record);

// The path of the first entry, in the folder's own order, that matches the name part of `path` as
// a mask and is neither a folder nor a link; empty when there is none.
VyString FindWildcardFile(std::string_view path);

}  // namespace zot
