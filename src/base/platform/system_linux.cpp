// <assert.h> declares the failure routine only while assertions are on.
#undef NDEBUG
#include <assert.h>
#include <string.h>
#include <sys/vfs.h>
#include <unistd.h>

#include "base/platform.h"

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

char** ProcessEnvironment() { return environ; }

}  // namespace zot
