#include "base/clock.h"

#include <ctime>

namespace zot {
namespace {

constexpr int64_t kMsPerSecond = 1000;
constexpr int64_t kNsPerMs = 1000000;

}  // namespace

int64_t MonotonicMs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * kMsPerSecond + now.tv_nsec / kNsPerMs;
}

int64_t MonotonicSeconds() { return MonotonicMs() / kMsPerSecond; }

int64_t StartOfWholeSecond() {
    timespec wall{};
    clock_gettime(CLOCK_REALTIME, &wall);
    return MonotonicMs() - wall.tv_nsec / kNsPerMs;
}

}  // namespace zot
