#include "checks/files/regular_file.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <utility>

#include "base/files.h"
#include "base/held_lock.h"
#include "base/vystring.h"

namespace zot {

RegularFile::~RegularFile() {
    fd_.Reset();
    if (locked_) RetakeLock();
}

bool RegularFile::Open(std::string_view path) {
    VyString terminated(path);
    struct stat status {};
    UniqueFd fd = OpenRegularFile(terminated.Terminate(), status);
    if (!fd) return false;
    posix_fadvise(fd.Get(), 0, 0, POSIX_FADV_SEQUENTIAL);
    locked_ = IsLockHeldOn(status);
    Adopt(std::move(fd), status.st_size);
    return true;
}

bool RegularFile::Stat(struct stat& status) const { return fstat(fd_.Get(), &status) == 0; }

bool RegularFile::Seek(int64_t offset) {
    if (offset < 0) {
        errno = EINVAL;
        return false;
    }
    offset_ = offset;
    return true;
}

ssize_t RegularFile::Read(char* buffer, size_t size) {
    auto left = static_cast<uint64_t>(std::max<int64_t>(end_ - offset_, 0));
    size = static_cast<size_t>(std::min<uint64_t>(size, left));
    size_t done = 0;
    while (done < size) {
        ssize_t count = pread(fd_.Get(), buffer + done, size - done, offset_);
        if (count == 0) break;
        if (count > 0) {
            done += static_cast<size_t>(count);
            offset_ += count;
        } else if (errno != EINTR) {
            return -1;
        }
    }
    return static_cast<ssize_t>(done);
}

bool RegularFile::Share(RegularFile& other) const {
    other.Adopt(UniqueFd(fcntl(fd_.Get(), F_DUPFD_CLOEXEC, 0)), size_);
    other.locked_ = locked_;
    return static_cast<bool>(other.fd_);
}

void RegularFile::Adopt(UniqueFd fd, int64_t size) noexcept {
    fd_ = std::move(fd);
    size_ = size;
    offset_ = 0;
    end_ = std::numeric_limits<int64_t>::max();
}

}  // namespace zot
