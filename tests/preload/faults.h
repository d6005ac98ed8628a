// What a test tells the library that is loaded into the agent under test: a small shared mapping.
#pragma once

#include <atomic>
#include <cstdint>

namespace zot::test {

struct FaultControl {
    std::atomic<int64_t> clockOffsetSeconds{0};  // added to the monotonic clock
    std::atomic<bool> crashInUname{false};       // GetInfo calls it on a session's thread
    std::atomic<bool> crashInLocaltime{false};   // the log calls it while it holds its lock
    std::atomic<bool> failFork{false};
    std::atomic<bool> failThreads{false};
};

inline constexpr char kFaultControlVariable[] = "ZOT_TEST_FAULTS";

}  // namespace zot::test
