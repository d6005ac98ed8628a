#include "checks/files/count_files.h"

#include <sys/stat.h>

#include <algorithm>
#include <ctime>
#include <limits>
#include <optional>
#include <utility>

#include "base/numbers.h"
#include "base/vystring.h"
#include "checks/files/directory.h"
#include "checks/files/file_checks.h"
#include "checks/files/name_mask.h"
#include "checks/files/parameters.h"
#include "checks/files/tree_walk.h"
#include "config/settings.h"
#include "protocol/reply.h"
#include "protocol/request_text.h"

namespace zot {
namespace {

// Whole minutes, cut to the 32 bits in which ages are compared.
int32_t Minutes(time_t seconds) { return static_cast<int32_t>(seconds / 60); }

// The minute that was `value` minutes ago. A value of more than 32 bits counts as the largest.
int32_t MinutesAgo(int64_t value) {
    using Limits = std::numeric_limits<int32_t>;
    auto minutes = std::clamp<int64_t>(value, Limits::min(), Limits::max());
    return static_cast<int32_t>(static_cast<uint32_t>(Minutes(std::time(nullptr))) -
                                static_cast<uint32_t>(minutes));
}

class Criterion {
  public:
    Criterion(std::string_view mask, CountMode mode, int64_t value)
        : mask_(mask), mode_(mode), value_(value), border_(MinutesAgo(value)) {}

    // Whether the mask takes the entry, and listings return it.
    bool Admits(Directory& directory, DirectoryEntry& entry) const {
        return mask_.Matches(entry.name) && directory.Classify(entry) &&
               entry.kind != EntryKind::kLink;
    }
    // REQUIRES Admits. Looks at more than the kind only where the mode asks for size or time.
    bool Counts(Directory& directory, DirectoryEntry& entry) const {
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
    int64_t value_;
    int32_t border_;  // in minutes
};

// Whether the entry has no attribute, except perhaps that of a folder.
bool IsPlain(Directory& directory, DirectoryEntry& entry) {
    if (entry.IsHidden() || !directory.Classify(entry)) return false;
    if (entry.kind == EntryKind::kLink || entry.kind == EntryKind::kSpecial) return false;
    return directory.IsWritable(entry.name);
}

// Looks through the whole folder, then goes back to its first entry.
bool HasPlainEntry(Directory& directory) {
    DirectoryEntry entry;
    bool found = false;
    directory.Rewind();
    while (!found && directory.Next(entry)) found = IsPlain(directory, entry);
    directory.Rewind();
    return found;
}

int64_t CountFolder(std::string_view folder, const Criterion& criterion) {
    Directory directory;
    if (!directory.Open(folder)) return -1;
    bool admitted = false;
    int64_t count = 0;
    DirectoryEntry entry;
    while (directory.Next(entry)) {
        if (!criterion.Admits(directory, entry)) continue;
        admitted = true;
        if (criterion.Counts(directory, entry)) ++count;
    }
    if (directory.IsIncomplete()) return -1;
    return admitted || HasPlainEntry(directory) ? count : -1;
}

class CountWalker {
  public:
    struct Level {
        Directory directory;
        uint64_t count = 0;
        bool entered = false;  // from a folder above, which found it writable
        bool plain = false;    // there was a plain entry
    };

    explicit CountWalker(const Criterion& criterion) : criterion_(criterion) {}

    bool Visit(Level& level, DirectoryEntry& entry) const {
        if (criterion_.Admits(level.directory, entry) &&
            criterion_.Counts(level.directory, entry)) {
            ++level.count;
        }
        return IsToEnter(level, entry);
    }
    bool Enter(Level& parent, const char* name, Level& child) const {
        child.entered = true;
        return child.directory.OpenBelow(parent.directory, name);
    }
    // Without a plain entry the count is void: for servers, the -1 of such a folder means that the
    // agent may not look into it.
    uint64_t Result(const Level& level) const { return level.plain ? level.count : 0; }

  private:
    static bool IsToEnter(Level& level, DirectoryEntry& entry);

    const Criterion& criterion_;
};

// Notes whether the entry is plain, where that matters; true when it is a folder to enter.
bool CountWalker::IsToEnter(Level& level, DirectoryEntry& entry) {
    bool isFolder = entry.kind == EntryKind::kDirectory && !entry.IsDots();
    if (level.plain && !isFolder && entry.kind != EntryKind::kUnknown) return false;
    if (level.entered && entry.IsDots()) {
        // The folder above has shown that "." is plain, so ".." is not worth a call.
        if (entry.name[1] == '\0') level.plain = level.directory.Classify(entry);
        return false;
    }
    if (!IsPlain(level.directory, entry)) return false;
    level.plain = true;
    return entry.kind == EntryKind::kDirectory && !entry.IsDots();
}

int64_t CountTree(std::string_view folder, const Criterion& criterion) {
    CountWalker walker(criterion);
    CountWalker::Level top;
    if (!top.directory.Open(folder) || !HasPlainEntry(top.directory)) return -1;
    top.plain = true;
    std::optional<uint64_t> count = TreeWalk(walker).Run(std::move(top));
    return count ? static_cast<int64_t>(*count) : -1;
}

}  // namespace

int64_t CountFiles(std::string_view folder, std::string_view mask, bool recurse, CountMode mode,
                   int64_t value) {
    Criterion criterion(mask, mode, value);
    return recurse ? CountTree(folder, criterion) : CountFolder(folder, criterion);
}

void TestCountFiles(std::string_view params, const AgentSettings& /*settings*/, Reply& reply) {
    VyString folder = PathLine(params, 1, 11);
    // Unsigned, so that a negative mode is refused too.
    auto mode = static_cast<uint32_t>(ToInt(GetLine(params, 4)));
    // Sizes have 64 bits, so the value they are compared with has 64 bits too.
    int64_t value = 0;
    if (mode >= kCountModes || !ParseInt64(GetLine(params, 5), value)) {
        return reply.Start("501", "Wrong parameter");
    }
    int64_t count = CountFiles(folder, GetLine(params, 2), FlagLine(params, 3),
                               static_cast<CountMode>(mode), value);
    if (count < 0) return reply.Start("301", "Folder doesn`t exist or access denied");
    reply.Start("200");
    reply.AppendInt(static_cast<int32_t>(count));
}

}  // namespace zot
