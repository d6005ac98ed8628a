// One open folder: its entries in the system's order. Each is looked at relative to the folder's
// descriptor, so no path is built and none is resolved twice.
//
// A walk holds one Directory for each level it is in. Symbolic links are recognised as such and
// never followed; special files are looked at, never opened.
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "base/owners.h"

namespace zot {

enum class EntryKind : uint8_t { kUnknown, kFile, kDirectory, kLink, kSpecial };

struct DirectoryEntry {
    const char* name = "";  // lives until the next entry of the same folder is read
    EntryKind kind = EntryKind::kUnknown;
    bool hasStatus = false;
    struct stat status;  // from lstat; holds a value only while hasStatus

    // "." or "..".
    bool IsDots() const noexcept {
        return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
    }
    bool IsHidden() const noexcept { return name[0] == '.' && !IsDots(); }
};

// Whether the error of a call on an entry is an answer: the agent may not look, or the entry is not
// there. After any other error the answer is unknown.
bool IsAnswer(int error);

class Directory {
  public:
    // Opens the folder, even through a symbolic link; an empty path means the current working
    // directory. False with errno on failure.
    bool Open(std::string_view path);
    // Opens a folder below `parent`, which stays open; the last part of `name` must not be a link.
    // Returns false on failure; IsIncomplete is valid then too.
    bool OpenBelow(const Directory& parent, const char* name);
    void Close() noexcept { stream_.reset(); }

    // Reads the next entry: its name and, where the listing has it, its kind. False at the end, or
    // when the peer that asked has gone.
    bool Next(DirectoryEntry& entry);
    // Whether something could not be found out since the folder was opened or rewound: a call
    // failed although the agent has the right and the entry exists. A sum over such a folder would
    // be too small.
    bool IsIncomplete() const noexcept { return incomplete_; }
    // Goes back to the first entry.
    void Rewind() noexcept;

    // Fills status and kind from lstat, once for each entry; false when that fails.
    bool Look(DirectoryEntry& entry);
    // Fills the kind, without lstat where the listing has it; false where lstat would fail.
    bool Classify(DirectoryEntry& entry);
    // lstat of a name relative to the folder.
    bool StatBelow(const char* name, struct stat& status);
    // Whether the agent may write the entry.
    bool IsWritable(const char* name);

  private:
    bool NamesPath(size_t nameLength) const noexcept;
    bool IsSearchable();
    bool Fail(int error) noexcept;

    UniqueDir stream_;
    bool incomplete_ = false;
    size_t pathLength_ = 0;  // of the folder's path with its trailing "/"
    enum class Search : uint8_t { kUnknown, kAllowed, kDenied };
    Search search_ = Search::kUnknown;
};

}  // namespace zot
