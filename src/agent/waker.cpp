#include "agent/waker.h"

#include <fcntl.h>
#include <unistd.h>

namespace zot {

Waker::Waker() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) return;
    readEnd_.Reset(ends[0]);
    writeEnd_.Reset(ends[1]);
}

void Waker::Wake() noexcept {
    // A full pipe is as good as a written one: the loop wakes up anyway.
    char byte = 0;
    [[maybe_unused]] ssize_t ignored = write(writeEnd_.Get(), &byte, 1);
}

void Waker::Drain() noexcept {
    char bytes[64];
    while (read(readEnd_.Get(), bytes, sizeof bytes) > 0) {
    }
}

}  // namespace zot
