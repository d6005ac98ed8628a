#include "config/console.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cstdio>

namespace zot {
namespace {

constexpr int kPatienceMs = 1000;

bool HasRoom(int descriptor, int timeoutMs) {
    pollfd entry = {descriptor, POLLOUT, 0};
    return poll(&entry, 1, timeoutMs) > 0;
}

}  // namespace

void Console::Write(std::string_view line) {
    if (descriptor_.load() < 0) Open();
    const int descriptor = descriptor_.load();
    // When a pipe has any room, it has room for a line of this length.
    stalled_ = !HasRoom(descriptor, stalled_ ? 0 : kPatienceMs);
    if (stalled_) return;
    [[maybe_unused]] ssize_t written = write(descriptor, line.data(), line.size());
}

void Console::WriteFromSignal(std::string_view line) noexcept {
    int descriptor = descriptor_.load();
    if (descriptor < 0) descriptor = STDOUT_FILENO;
    if (!HasRoom(descriptor, 0)) return;
    [[maybe_unused]] ssize_t written = write(descriptor, line.data(), line.size());
}

void Console::Open() {
    std::fflush(stdout);  // what the start has printed comes first
    char name[256];
    if (ttyname_r(STDOUT_FILENO, name, sizeof name) == 0) {
        ownTerminal_.Reset(open(name, O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    }
    descriptor_.store(ownTerminal_ ? ownTerminal_.Get() : STDOUT_FILENO);
}

}  // namespace zot
