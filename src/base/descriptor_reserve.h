// Descriptors that stay free, whatever the agent has open. The system hands out the lowest free
// number, so one that is near the limit means that nearly all are taken.
#pragma once

#include <unistd.h>

namespace zot {

// So many stay for the files, pipes and sockets of running requests when connections crowd in.
inline constexpr int kDescriptorReserve = 64;

// Whether what takes one descriptor after the other, a walk down a tree, must stop at this one:
// early enough that the listener still finds its reserve. Low numbers are not worth a question.
inline bool EatsIntoReserve(int descriptor) {
    if (descriptor < kDescriptorReserve) return false;
    long limit = sysconf(_SC_OPEN_MAX);
    return limit > 0 && descriptor >= limit - 2L * kDescriptorReserve;
}

}  // namespace zot
