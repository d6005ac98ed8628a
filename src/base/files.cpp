#include "base/files.h"

#include <fcntl.h>
#include <poll.h>

namespace zot {
namespace {

// The system breaks a lease by itself after a while, usually 45 seconds.
constexpr int kLeaseTries = 6000;
constexpr int kLeaseIntervalMs = 10;

int OpenAtOnce(const char* path, int flags) {
    return open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC | flags);
}

}  // namespace

UniqueFd OpenRegularFile(const char* path, struct stat& status, int flags) {
    // Merely opening a tape, or the reading end of a pipe, already does something to it.
    if (!IsRegularFile(path)) return UniqueFd();
    UniqueFd fd(OpenAtOnce(path, flags));
    // The first try asks the holder of a write lease, usually a file server, to give it up. A
    // blocking open would wait for that too, but also for ever on a fifo that has taken the file's
    // place.
    for (int i = 0; !fd && errno == EWOULDBLOCK && i < kLeaseTries; ++i) {
        poll(nullptr, 0, kLeaseIntervalMs);
        fd.Reset(OpenAtOnce(path, flags));
    }
    if (fd && (fstat(fd.Get(), &status) != 0 || !S_ISREG(status.st_mode))) fd.Reset();
    return fd;
}

UniqueFd CreateExclusively(const char* path) {
    return UniqueFd(open(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
}

UniqueFd CreateAnew(const char* path) {
    unlink(path);
    return CreateExclusively(path);
}

}  // namespace zot
