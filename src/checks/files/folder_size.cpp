#include "checks/files/folder_size.h"

#include <sys/stat.h>

#include <optional>
#include <utility>

#include "base/vystring.h"
#include "checks/files/directory.h"
#include "checks/files/file_checks.h"
#include "checks/files/name_mask.h"
#include "checks/files/parameters.h"
#include "checks/files/path.h"
#include "checks/files/tree_walk.h"
#include "config/settings.h"
#include "protocol/reply.h"

namespace zot {
namespace {

class SizeWalker {
  public:
    struct Level {
        Directory directory;
        uint64_t bytes = 0;  // unsigned: sparse files can claim more than 63 bits hold
        bool masked = true;  // the request's mask applies here, not "*"
    };

    SizeWalker(std::string_view mask, bool recurse) : mask_(mask), recurse_(recurse) {}

    bool Visit(Level& level, DirectoryEntry& entry) const;
    bool Enter(Level& parent, const char* name, Level& child) const;
    uint64_t Result(const Level& level) const { return level.bytes; }

  private:
    const NameMask& MaskOf(const Level& level) const { return level.masked ? mask_ : everything_; }

    const NameMask mask_;
    const NameMask everything_{"*"};
    const bool recurse_;
};

bool SizeWalker::Visit(Level& level, DirectoryEntry& entry) const {
    if (entry.kind == EntryKind::kUnknown && !level.directory.Look(entry)) return false;
    if (entry.kind == EntryKind::kDirectory) return recurse_ && !entry.IsDots();
    if (entry.kind != EntryKind::kLink && MaskOf(level).Matches(entry.name) &&
        level.directory.Look(entry)) {
        level.bytes += static_cast<uint64_t>(entry.status.st_size);
    }
    return false;
}

bool SizeWalker::Enter(Level& parent, const char* name, Level& child) const {
    VyString path(name);
    path.Append('/');
    path.Append(MaskOf(parent).Text());
    // The child is named by folder and mask, as the path of a request is. As there, the whole is
    // first tried as a folder: one whose name is the mask is summed instead.
    struct stat status {};
    bool whole = parent.directory.StatBelow(path.Terminate(), status) && S_ISDIR(status.st_mode);
    child.masked = parent.masked && !whole;
    return child.directory.OpenBelow(parent.directory, whole ? path.Data() : name);
}

// Whether the listing returns anything at all; links do not count.
bool HasEntry(Directory& directory) {
    DirectoryEntry entry;
    bool found = false;
    while (!found && directory.Next(entry)) {
        found = directory.Classify(entry) && entry.kind != EntryKind::kLink;
    }
    directory.Rewind();
    return found;
}

int64_t SumFolder(std::string_view folder, std::string_view mask, bool recurse) {
    SizeWalker walker(mask, recurse);
    SizeWalker::Level top;
    if (!top.directory.Open(folder) || !HasEntry(top.directory)) return -1;
    std::optional<uint64_t> size = TreeWalk(walker).Run(std::move(top));
    return size ? static_cast<int64_t>(*size) : -1;
}

}  // namespace

int64_t FolderSize(std::string_view path, bool recurse) {
    if (MayBeDirectory(path)) return SumFolder(path, "*", recurse);
    return SumFolder(DirectoryPart(path), NamePart(path), recurse);
}

void TestFolderSize(std::string_view params, const AgentSettings& /*settings*/, Reply& reply) {
    int64_t size = FolderSize(PathLine(params, 1, 8), FlagLine(params, 2));
    if (size < 0) return reply.Start("301", "Folder/File doesn`t exist or access denied");
    reply.Start("200");
    reply.AppendInt64(size);
}

}  // namespace zot
