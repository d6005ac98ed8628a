#include "checks/files/directory.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <unistd.h>

#include <cstring>
#include <memory>

#include "base/descriptor_reserve.h"
#include "base/peer_watch.h"
#include "base/vystring.h"

namespace zot {
namespace {

constexpr size_t kMaxPath = PATH_MAX - 1;

EntryKind KindOf(mode_t mode) {
    if (S_ISREG(mode)) return EntryKind::kFile;
    if (S_ISDIR(mode)) return EntryKind::kDirectory;
    return S_ISLNK(mode) ? EntryKind::kLink : EntryKind::kSpecial;
}

EntryKind KindOf(const dirent& listed) {
    switch (listed.d_type) {
        case DT_REG:
            return EntryKind::kFile;
        case DT_DIR:
            return EntryKind::kDirectory;
        case DT_LNK:
            return EntryKind::kLink;
        case DT_FIFO:
        case DT_SOCK:
        case DT_CHR:
        case DT_BLK:
            return EntryKind::kSpecial;
        default:
            return EntryKind::kUnknown;
    }
}

}  // namespace

bool IsAnswer(int error) {
    switch (error) {
        case EACCES:
        case EPERM:
        case EROFS:
        case ETXTBSY:
        case ENOENT:
        case ESRCH:   // a folder of a process that has ended
        case EINVAL:  // or of its network
        case ENOTDIR:
        case ELOOP:
        case EMLINK:  // O_NOFOLLOW on some systems
        case ENAMETOOLONG:
            return true;
        default:
            return false;
    }
}

// Notes why a call failed; always false.
bool Directory::Fail(int error) noexcept {
    incomplete_ = incomplete_ || !IsAnswer(error);
    return false;
}

bool Directory::Open(std::string_view path) {
    VyString folder(path);
    if (path.empty()) {
        char current[4095];
        if (getcwd(current, sizeof current) == nullptr) return false;
        folder = current;
    }
    if (folder.At(folder.Length()) != '/') folder.Append('/');
    stream_.reset(opendir(folder.Terminate()));
    pathLength_ = static_cast<size_t>(folder.Length());
    search_ = Search::kUnknown;
    incomplete_ = false;
    return stream_ != nullptr;
}

bool Directory::OpenBelow(const Directory& parent, const char* name) {
    size_t length = std::strlen(name) + 1;
    if (!parent.NamesPath(length)) return false;
    constexpr int kFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
    incomplete_ = false;
    UniqueFd fd(openat(dirfd(parent.stream_.get()), name, kFlags));
    if (!fd) return Fail(errno);
    if (EatsIntoReserve(fd.Get())) return Fail(EMFILE);
    stream_.reset(fdopendir(fd.Get()));
    if (!stream_) return Fail(errno);
    fd.Release();
    pathLength_ = parent.pathLength_ + length;
    search_ = Search::kUnknown;
    return true;
}

bool Directory::Next(DirectoryEntry& entry) {
    for (;;) {
        if (WorksInVain(kEntryWork)) return Fail(ECONNRESET);
        errno = 0;
        const dirent* listed = readdir(stream_.get());
        if (listed == nullptr) return errno != 0 && Fail(errno);
        entry.name = listed->d_name;
        // An entry that no path can name does not exist for a walk, even though a descriptor
        // reaches it: the answer must not depend on where a walk starts or how it gets there.
        if (!NamesPath(NAME_MAX) && !NamesPath(std::strlen(entry.name))) continue;
        entry.kind = KindOf(*listed);
        entry.hasStatus = false;
        return true;
    }
}

void Directory::Rewind() noexcept {
    rewinddir(stream_.get());
    incomplete_ = false;
}

bool Directory::Look(DirectoryEntry& entry) {
    if (entry.hasStatus) return true;
    if (!StatBelow(entry.name, entry.status)) return false;
    entry.kind = KindOf(entry.status.st_mode);
    entry.hasStatus = true;
    return true;
}

bool Directory::Classify(DirectoryEntry& entry) {
    return entry.kind == EntryKind::kUnknown ? Look(entry) : IsSearchable();
}

bool Directory::StatBelow(const char* name, struct stat& status) {
    if (!NamesPath(std::strlen(name))) return false;
    return fstatat(dirfd(stream_.get()), name, &status, AT_SYMLINK_NOFOLLOW) == 0 || Fail(errno);
}

bool Directory::IsWritable(const char* name) {
    return faccessat(dirfd(stream_.get()), name, W_OK, 0) == 0 || Fail(errno);
}

// Whether the system takes a path to an entry of this folder with a name of this length.
bool Directory::NamesPath(size_t nameLength) const noexcept {
    return pathLength_ + nameLength <= kMaxPath;
}

// A folder that may be listed but not searched answers no lstat, whatever the listing says.
bool Directory::IsSearchable() {
    if (search_ == Search::kUnknown) {
        struct stat status {};
        search_ = StatBelow(".", status) ? Search::kAllowed : Search::kDenied;
    }
    return search_ == Search::kAllowed;
}

}  // namespace zot
