#include "checks/files/regular_file.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <limits>
#include <utility>

#include "base/files.h"
#include "base/held_lock.h"
#include "base/peer_watch.h"
#include "base/platform/system.h"
#include "base/vystring.h"

namespace zot {
namespace {

// The files under /proc that anybody asks about are far smaller; some have no end.
constexpr int64_t kMostOfMadeUp = int64_t{64} << 20;

bool IsAllZeros(std::string_view bytes) {
    return !bytes.empty() && bytes.front() == '\0' && bytes.back() == '\0' &&
           std::memcmp(bytes.data(), bytes.data() + 1, bytes.size() - 1) == 0;
}

}  // namespace

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
    // Files whose content is made up take no room, so the system is asked only about files without
    // any.
    madeUp_ = status.st_blocks == 0 && IsMadeUpFile(fd.Get());
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
    bool endless = madeUp_ && offset_ + static_cast<int64_t>(size) > kMostOfMadeUp;
    if (endless || WorksInVain(size)) {
        errno = endless ? EFBIG : ECONNRESET;
        return -1;
    }
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

MappedBytes RegularFile::Map(int64_t offset, int64_t end) const {
    end = std::min(end, end_);
    const bool wanted = offset < end && !madeUp_ && !WorksInVain(kLookNow - 1);
    return MappedBytes(fd_.Get(), offset, wanted ? static_cast<size_t>(end - offset) : 0);
}

bool RegularFile::Share(RegularFile& other) const {
    other.Adopt(UniqueFd(fcntl(fd_.Get(), F_DUPFD_CLOEXEC, 0)), size_);
    other.locked_ = locked_;
    other.madeUp_ = madeUp_;
    return static_cast<bool>(other.fd_);
}

int64_t RegularFile::HoleAfter(std::string_view lastRead) const {
    if (!IsAllZeros(lastRead)) return 0;
    int64_t data = lseek(fd_.Get(), offset_, SEEK_DATA);
    if (data < 0) {
        struct stat status {};
        if (errno != ENXIO || !Stat(status)) return 0;
        data = status.st_size;
    }
    return std::max<int64_t>(std::min(data, end_) - offset_, 0);
}

void RegularFile::Adopt(UniqueFd fd, int64_t size) noexcept {
    fd_ = std::move(fd);
    size_ = size;
    offset_ = 0;
    end_ = std::numeric_limits<int64_t>::max();
}

}  // namespace zot
