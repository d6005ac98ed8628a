// One line on standard error that overwrites itself while hosts are asked: "12/46 hosts, 1 failed,
// 3 s left". Silent when nobody watches, and in the first half second.
#pragma once

#include <chrono>
#include <cstddef>

#include "client/invocation.h"

namespace zot::client {

class ProgressLine {
  public:
    // Silent for a total of 0.
    ProgressLine(const Console& console, size_t total);
    ~ProgressLine() { Clear(); }
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;

    // Counts one more as done.
    void Count(bool failed);
    // Makes room for other output.
    void Clear();

  private:
    using Clock = std::chrono::steady_clock;

    const Console& console_;
    size_t total_;
    size_t done_ = 0;
    size_t failed_ = 0;
    bool shown_ = false;
    Clock::time_point begin_ = Clock::now();
    Clock::time_point next_;
};

}  // namespace zot::client
