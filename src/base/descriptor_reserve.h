// Descriptors that stay free, whatever the agent has open. The system hands out the lowest free
// number, so one that is near the limit means that nearly all are taken.
#pragma once

#include <unistd.h>

#include <algorithm>

namespace zot {

// So many of `limit` stay for the files, pipes and sockets of running requests when connections
// crowd in; where there are few, most are still for connections.
inline long DescriptorReserve(long limit) { return std::min(64L, limit / 4); }

// Whether what takes one descriptor after the other, a walk down a tree, must stop at this one:
// early enough that the listener still finds its reserve. Low numbers are not worth a question.
inline bool EatsIntoReserve(int descriptor) {
    constexpr int kLow = 16;
    if (descriptor < kLow) return false;
    const long limit = sysconf(_SC_OPEN_MAX);
    return limit > 0 && descriptor >= limit - 2 * DescriptorReserve(limit);
}

}  // namespace zot
