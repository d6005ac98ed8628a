// The orders of a test for the library that is loaded into the agent under test: a small shared
// mapping.
#pragma once

#include <atomic>
#include <cerrno>
#include <cstdint>

namespace zot::test {

// Instead of an error number: half of the bytes are read, written or sent.
inline constexpr int32_t kShort = -1;

// One kind of call that fails on order. Orders come while the agent runs, so the calls of its start
// are not hit by accident.
struct CallFault {
    std::atomic<int32_t> error{0};  // the errno of the failure, or kShort
    std::atomic<int64_t> skip{0};   // calls that are let through first
    std::atomic<int64_t> left{0};   // calls that then fail
    std::atomic<int64_t> hits{0};   // calls that have failed

    void Fail(int32_t errorNumber, int64_t count = INT64_MAX, int64_t after = 0) {
        error.store(errorNumber);
        skip.store(after);
        left.store(count);
    }
    void Stop() { left.store(0); }

    // Called in the agent for each call: whether this one fails.
    bool Strikes() {
        if (left.load() <= 0 || skip.fetch_sub(1) > 0) return false;
        if (left.fetch_sub(1) <= 0) return false;
        hits.fetch_add(1);
        return true;
    }
};

struct FaultControl {
    std::atomic<int64_t> clockOffsetSeconds{0};  // added to the monotonic clock
    std::atomic<int64_t> dateOffsetSeconds{0};   // added to the date
    std::atomic<int64_t> lookupSeconds{0};       // how long a host name takes to resolve
    std::atomic<bool> crashInUname{false};       // GetInfo calls it on a session's thread
    std::atomic<bool> crashInLocaltime{false};   // the log calls it while it holds its lock

    CallFault memory;  // malloc and realloc
    CallFault open;    // open, openat, fopen and opendir
    CallFault list;    // readdir
    CallFault look;    // stat, lstat and fstatat
    CallFault fstat;
    CallFault map;  // mmap
    CallFault sync;
    CallFault rename;
    CallFault pipe;
    CallFault read;  // and pread
    CallFault write;
    CallFault fork;  // and vfork
    CallFault thread;
    CallFault accept;
    CallFault poll;  // and ppoll
    CallFault receive;
    CallFault send;
    CallFault socket;
    CallFault execute;  // execve
};

inline constexpr char kFaultControlVariable[] = "ZOT_TEST_FAULTS";

}  // namespace zot::test
