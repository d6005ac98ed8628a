// Descriptors that stay free whatever the agent has open. The system hands out the lowest free
// number, so a number near the limit means that nearly all are taken.
#pragma once

#include <unistd.h>

#include <algorithm>

namespace zot {

// How many of `limit` stay free for the files, pipes and sockets of running requests when
// connections crowd in. Where the limit is low, connections still get most of it.
inline long DescriptorReserve(long limit) { return std::min(64L, limit / 4); }

// Whether work that takes one descriptor after another, like a walk down a tree, must stop at this
// one, to leave the listener its reserve. Low numbers are not worth the question.
inline bool EatsIntoReserve(int descriptor) {
    constexpr int kLow = 16;
    if (descriptor < kLow) return false;
    const long limit = sysconf(_SC_OPEN_MAX);
    return limit > 0 && descriptor >= limit - 2 * DescriptorReserve(limit);
}

}  // namespace zot
