// One line on standard error that is written over itself while hosts are asked: "12/46 hosts, 1
// failed, 3 s left". Silent where nobody watches, and in the first half second.
#pragma once

#include <chrono>
#include <cstddef>

#include "client/invocation.h"

namespace zot::client {

class ProgressLine {
  public:
    // A total of 0 is silent.
    ProgressLine(const Console& console, size_t total);
    ~ProgressLine() { Clear(); }
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;

    // One more is done.
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
