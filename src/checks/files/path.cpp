#include "checks/files/path.h"

#include <errno.h>
#include <sys/stat.h>

#include "checks/files/directory.h"

namespace zot {
namespace {

constexpr size_t kMaxPart = 4095;

}  // namespace

int32_t LastCharOf(std::string_view set, std::string_view text) noexcept {
    size_t at = text.find_last_of(set);
    return at == std::string_view::npos ? 0 : static_cast<int32_t>(at) + 1;
}

std::string_view DirectoryPart(std::string_view path) noexcept {
    return path.substr(0, static_cast<size_t>(LastCharOf("/", path)));
}

std::string_view NamePart(std::string_view path) noexcept {
    return path.substr(static_cast<size_t>(LastCharOf("/", path))).substr(0, kMaxPart);
}

VyString WithSlash(std::string_view path) {
    VyString result(path);
    if (path.empty() || path.back() != '/') result.Append('/');
    return result;
}

bool StatPath(std::string_view path, struct stat& status) {
    VyString terminated(path);
    return stat(terminated.Terminate(), &status) == 0;
}

bool LinkStatPath(std::string_view path, struct stat& status) {
    VyString terminated(path);
    return lstat(terminated.Terminate(), &status) == 0;
}

bool MayBeDirectory(std::string_view path) {
    struct stat status {};
    return StatPath(path, status) ? S_ISDIR(status.st_mode) : !IsAnswer(errno);
}

int32_t ShortModificationTime(const struct stat& status) noexcept {
    return static_cast<int32_t>(status.st_mtime);
}

int64_t FileSize(std::string_view path) {
    struct stat status {};
    return StatPath(path, status) ? status.st_size : -1;
}

bool FileInfo(std::string_view path, int64_t& size, time_t& changeTime, time_t& modificationTime) {
    struct stat status {};
    if (path.empty() || !LinkStatPath(path, status)) return false;
    size = status.st_size;
    changeTime = status.st_ctime;
    modificationTime = status.st_mtime;
    return true;
}

}  // namespace zot
