#include "checks/files/folder_size.h"

#include <utility>
#include <vector>

#include "base/vystring.h"
#include "checks/files/directory.h"
#include "checks/files/name_mask.h"
#include "checks/files/path.h"

namespace zot {
namespace {

struct Level {
    Directory directory;
    bool masked = true;  // the mask of the request applies here, not "*"
};

class SizeWalk {
  public:
    SizeWalk(std::string_view mask, bool recurse) : mask_(mask), recurse_(recurse) {}

    // Bytes, or -1 when the folder cannot be listed or holds nothing but links.
    int64_t Run(std::string_view folder);

  private:
    void Count(Level& level, DirectoryEntry& entry);
    bool OpenChild(const Level& parent, const char* name, Level& child);

    NameMask mask_;
    const NameMask everything_{"*"};
    bool recurse_;
    // Unsigned, since sparse files can claim more than 63 bits hold.
    uint64_t bytes_ = 0;
    VyString childPath_;
};

int64_t SizeWalk::Run(std::string_view folder) {
    // The levels stand on the heap: a session's stack is small, and a tree may be deep.
    std::vector<Level> levels(1);
    if (levels[0].directory.Open(folder) != 0) return -1;
    bool found = false;
    DirectoryEntry entry;
    while (!levels.empty()) {
        Level& level = levels.back();
        if (!level.directory.Next(entry)) {
            levels.pop_back();
            continue;
        }
        if (!found) found = level.directory.Classify(entry) && entry.kind != EntryKind::kLink;
        Count(level, entry);
        if (!recurse_ || entry.kind != EntryKind::kDirectory || entry.IsDots()) continue;
        Level child;
        if (OpenChild(level, entry.name, child)) levels.push_back(std::move(child));
    }
    return found ? static_cast<int64_t>(bytes_) : -1;
}

void SizeWalk::Count(Level& level, DirectoryEntry& entry) {
    if (entry.kind == EntryKind::kDirectory || entry.kind == EntryKind::kLink) return;
    const NameMask& mask = level.masked ? mask_ : everything_;
    bool matches = mask.Matches(entry.name);
    // An entry of unknown kind may turn out to be a folder to descend into.
    if (!matches && entry.kind != EntryKind::kUnknown) return;
    if (!level.directory.Look(entry) || !matches) return;
    if (entry.kind == EntryKind::kDirectory || entry.kind == EntryKind::kLink) return;
    bytes_ += static_cast<uint64_t>(entry.status.st_size);
}

bool SizeWalk::OpenChild(const Level& parent, const char* name, Level& child) {
    const NameMask& mask = parent.masked ? mask_ : everything_;
    childPath_ = name;
    childPath_.Append('/');
    childPath_.Append(mask.Text());
    // The child is named by folder and mask, as the path of a request is, and like there the whole
    // is first taken for a folder: one that bears the mask as its name is summed in its place.
    struct stat status {};
    if (parent.directory.StatBelow(childPath_.Terminate(), status) && S_ISDIR(status.st_mode)) {
        child.masked = false;
        return child.directory.OpenBelow(parent.directory, childPath_.Data());
    }
    child.masked = parent.masked;
    return child.directory.OpenBelow(parent.directory, name);
}

}  // namespace

int64_t FolderSize(std::string_view path, bool recurse) {
    if (IsDirectory(path)) return SizeWalk("*", recurse).Run(path);
    return SizeWalk(NamePart(path), recurse).Run(DirectoryPart(path));
}

}  // namespace zot
