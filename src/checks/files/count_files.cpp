#include "checks/files/count_files.h"

#include <ctime>
#include <utility>
#include <vector>

#include "checks/files/directory_iterator.h"

namespace zot {
namespace {

// Whole minutes, cut to the 32 bits that ages are compared in.
int32_t Minutes(time_t seconds) { return static_cast<int32_t>(seconds / 60); }

class Criterion {
  public:
    Criterion(std::string_view mask, CountMode mode, int32_t value)
        : mask_(mask),
          mode_(mode),
          value_(value),
          border_(static_cast<int32_t>(static_cast<uint32_t>(Minutes(std::time(nullptr))) -
                                       static_cast<uint32_t>(value))) {}

    // Whether the mask takes the entry and it is one that listings return.
    bool Admits(Directory& directory, DirectoryEntry& entry) const {
        return mask_.Matches(entry.name) && directory.Classify(entry) &&
               entry.kind != EntryKind::kLink;
    }
    // REQUIRES Admits. Looks closer than the kind only where the mode asks for size or time.
    bool Counts(const Directory& directory, DirectoryEntry& entry) const {
        if (entry.kind == EntryKind::kDirectory) {
            return mode_ == CountMode::kSubFolders && !entry.IsDots();
        }
        if (mode_ == CountMode::kSubFolders) return false;
        return mode_ == CountMode::kAllFiles || (directory.Look(entry) && IsInRange(entry.status));
    }

  private:
    bool IsInRange(const struct stat& status) const {
        switch (mode_) {
            case CountMode::kOlderThan:
                return border_ > Minutes(status.st_mtime);
            case CountMode::kNewerThan:
                return border_ < Minutes(status.st_mtime);
            case CountMode::kBiggerThan:
                return status.st_size > value_;
            default:
                return status.st_size < value_;
        }
    }

    NameMask mask_;
    CountMode mode_;
    int32_t value_;
    int32_t border_;  // the minute that `value_` minutes ago was
};

// Whether the entry carries no attribute but, perhaps, that of a folder.
bool IsPlain(Directory& directory, DirectoryEntry& entry) {
    if (entry.IsHidden() || !directory.Classify(entry)) return false;
    if (entry.kind == EntryKind::kLink || entry.kind == EntryKind::kSpecial) return false;
    return directory.IsWritable(entry.name);
}

bool HasPlainEntry(Directory& directory) {
    DirectoryEntry entry;
    directory.Rewind();
    while (directory.Next(entry)) {
        if (IsPlain(directory, entry)) return true;
    }
    return false;
}

int64_t CountFolder(std::string_view folder, const Criterion& criterion) {
    Directory directory;
    if (directory.Open(folder) != 0) return -1;
    bool admitted = false;
    int64_t count = 0;
    DirectoryEntry entry;
    while (directory.Next(entry)) {
        if (!criterion.Admits(directory, entry)) continue;
        admitted = true;
        if (criterion.Counts(directory, entry)) ++count;
    }
    return admitted || HasPlainEntry(directory) ? count : -1;
}

struct Level {
    Directory directory;
    int64_t count = 0;
    bool entered = false;  // from a folder above, which found this one writable
    bool plain = false;    // a plain entry was met

    // Without one the count is void: servers take the -1 of a folder that the agent may not write.
    int64_t Result() const { return plain ? count : -1; }
};

// Notes whether the entry is plain, as far as that matters; true when it is a folder to enter.
bool IsToEnter(Level& level, DirectoryEntry& entry) {
    bool isFolder = entry.kind == EntryKind::kDirectory && !entry.IsDots();
    if (level.plain && !isFolder && entry.kind != EntryKind::kUnknown) return false;
    bool isSelf = entry.name[0] == '.' && entry.name[1] == '\0';
    bool known = level.entered && isSelf && level.directory.Classify(entry);
    if (!known && !IsPlain(level.directory, entry)) return false;
    level.plain = true;
    return entry.kind == EntryKind::kDirectory && !entry.IsDots();
}

int64_t CountTree(std::string_view folder, const Criterion& criterion) {
    // The levels stand on the heap: a session's stack is small, and a tree may be deep.
    std::vector<Level> levels(1);
    if (levels[0].directory.Open(folder) != 0) return -1;
    DirectoryEntry entry;
    for (;;) {
        Level& level = levels.back();
        if (!level.directory.Next(entry)) {
            int64_t result = level.Result();
            levels.pop_back();
            if (levels.empty()) return result;
            if (result > 0) levels.back().count += result;
            continue;
        }
        if (criterion.Admits(level.directory, entry) && criterion.Counts(level.directory, entry)) {
            ++level.count;
        }
        if (!IsToEnter(level, entry)) continue;
        Level child;
        child.entered = true;
        if (child.directory.OpenBelow(level.directory, entry.name)) {
            levels.push_back(std::move(child));
        }
    }
}

}  // namespace

int64_t CountFiles(std::string_view folder, std::string_view mask, bool recurse, CountMode mode,
                   int32_t value) {
    Criterion criterion(mask, mode, value);
    return recurse ? CountTree(folder, criterion) : CountFolder(folder, criterion);
}

}  // namespace zot
