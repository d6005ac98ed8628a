#include "base/files.h"

#include <fcntl.h>
#include <poll.h>

namespace zot {
namespace {

// The system takes a lease away by itself after some time, usually 45 seconds.
constexpr int kLeaseTries = 6000;
constexpr int kLeaseIntervalMs = 10;

int OpenAtOnce(const char* path, int flags) {
    return open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC | flags);
}

}  // namespace

UniqueFd OpenRegularFile(const char* path, struct stat& status, int flags) {
    // To open a tape or the reading end of a pipe already does something to it.
    if (!IsRegularFile(path)) return UniqueFd();
    UniqueFd fd(OpenAtOnce(path, flags));
    // The holder of a write lease, usually a file server, is asked for it by the first try. To
    // wait in the call would also mean to wait for whoever put a fifo in the file's place.
    for (int i = 0; !fd && errno == EWOULDBLOCK && i < kLeaseTries; ++i) {
        poll(nullptr, 0, kLeaseIntervalMs);
        fd.Reset(OpenAtOnce(path, flags));
    }
    if (fd && (fstat(fd.Get(), &status) != 0 || !S_ISREG(status.st_mode))) fd.Reset();
    return fd;
}

}  // namespace zot
