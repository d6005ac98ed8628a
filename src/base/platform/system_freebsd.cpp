#include <assert.h>
#include <errno.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/param.h>
#include <unistd.h>

#include <algorithm>
#include <initializer_list>

#include "base/platform/system.h"

extern char** environ;

// For the allocator: pages of large blocks go back at once. Those of others follow some seconds
// later, but only while requests come.
const char* malloc_conf = "oversize_threshold:1048576";

namespace zot {

bool SystemErrorText(int errorNumber, char* buffer, size_t size) {
    if (size == 0) return false;
    buffer[0] = '\0';
    if (strerror_r(errorNumber, buffer, size) == 0) return true;
    buffer[0] = '\0';
    return false;
}

void AssertionFailure(const char* function, const char* file, int line, const char* expression) {
    __assert(function, file, line, expression);
}

bool FileSystemSpace(const char* path, int64_t& total, int64_t& free, int64_t& available) {
    struct statfs info {};
    if (statfs(path, &info) != 0) return false;
    auto blockSize = static_cast<int64_t>(info.f_bsize);
    total = static_cast<int64_t>(info.f_blocks) * blockSize;
    free = static_cast<int64_t>(info.f_bfree) * blockSize;
    available = static_cast<int64_t>(info.f_bavail) * blockSize;
    return true;
}

// malloc_conf does it.
void LimitFreedMemory() {}

bool IsErrorOfPeer(int acceptError) {
    switch (acceptError) {
        case ECONNABORTED:
        case EPROTO:
        case EPERM:
        case ENETDOWN:
        case ENOPROTOOPT:
        case EHOSTDOWN:
        case EHOSTUNREACH:
        case EOPNOTSUPP:
        case ENETUNREACH:
        case ETIMEDOUT:
        case ECONNRESET:
            return true;
        default:
            return false;
    }
}

int MoreFollowsFlag() { return 0; }

bool ExpectMapped(void* begin, size_t size) noexcept {
    constexpr size_t kLooked = 128;
    static const auto pageSize = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    const size_t pages = (size + pageSize - 1) / pageSize;
    const size_t looked = std::min(pages, kLooked);
    // The end is never read ahead. Both ends together tell of the rest: what was written or read
    // last stays in memory as a whole.
    for (const size_t first : {pages - looked, size_t{0}}) {
        char* const from = static_cast<char*>(begin) + first * pageSize;
        // Enters the pages that are in memory; mincore tells of no others.
        madvise(from, looked * pageSize, MADV_WILLNEED);
        char inMemory[kLooked];
        if (mincore(from, looked * pageSize, inMemory) != 0) return false;
        auto missing = std::count_if(inMemory, inMemory + looked,
                                     [](char page) { return (page & MINCORE_INCORE) == 0; });
        // The last page of a file that grows is seldom complete.
        if (missing > 1) return false;
    }
    return true;
}

bool IsMadeUpFile(int fd) {
    struct statfs info {};
    if (fstatfs(fd, &info) != 0) return false;
    for (const char* name : {"procfs", "linprocfs", "linsysfs"}) {
        if (strcmp(info.f_fstypename, name) == 0) return true;
    }
    return false;
}

int ThreadNice() { return 0; }

bool SetThreadNice(int /*nice*/) { return true; }

char** ProcessEnvironment() { return environ; }

}  // namespace zot
