// <assert.h> declares the failure routine only while assertions are on.
#undef NDEBUG
#include <assert.h>
#include <errno.h>
#include <linux/magic.h>
#include <malloc.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cstdint>

#include "base/platform/system.h"

namespace zot {

bool SystemErrorText(int errorNumber, char* buffer, size_t size) {
    if (size == 0) return false;
    buffer[0] = '\0';
    // This strerror_r may answer with a constant string instead of filling the buffer.
    const char* text = strerror_r(errorNumber, buffer, size);
    if (text == nullptr) return false;
    if (text != buffer) {
        size_t length = strnlen(text, size - 1);
        memcpy(buffer, text, length);
        buffer[length] = '\0';
    }
    return true;
}

void AssertionFailure(const char* function, const char* file, int line, const char* expression) {
    __assert_fail(expression, file, static_cast<unsigned>(line), function);
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

void LimitFreedMemory() {
#ifdef __GLIBC__
    // By default the allocator takes the first large blocks that are freed as a sign of more to
    // come, and from then on keeps up to 64 MiB in each of its arenas. Once set, both values stay.
    // Everyday requests only need blocks below the first one.
    mallopt(M_MMAP_THRESHOLD, 1 << 20);
    mallopt(M_TRIM_THRESHOLD, 2 << 20);
#endif
}

bool IsErrorOfPeer(int acceptError) {
    switch (acceptError) {
        case ECONNABORTED:
        case EPROTO:
        case EPERM:  // a rule of the system's packet filter
        // Errors that are pending on a new connection are reported here.
        case ENETDOWN:
        case ENOPROTOOPT:
        case EHOSTDOWN:
        case ENONET:
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

bool IsMadeUpFile(int fd) {
    struct statfs info {};
    if (fstatfs(fd, &info) != 0) return false;
    switch (info.f_type) {
        case PROC_SUPER_MAGIC:
        case SYSFS_MAGIC:
        case DEBUGFS_MAGIC:
        case TRACEFS_MAGIC:
            return true;
        default:
            return false;
    }
}

bool ExpectMapped(void* begin, size_t size) noexcept {
    madvise(begin, size, MADV_SEQUENTIAL);
    return true;
}

int MoreFollowsFlag() { return MSG_MORE; }

// The value is each thread's own here, whatever POSIX says.
int ThreadNice() { return getpriority(PRIO_PROCESS, 0); }

bool SetThreadNice(int nice) { return setpriority(PRIO_PROCESS, 0, nice) == 0; }

char** ProcessEnvironment() { return environ; }

}  // namespace zot
