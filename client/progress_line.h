// One line on standard error that overwrites itself while hosts are asked: "12/46 hosts, 1 failed,
// at most 8 s left". Silent when nobody watches, and in the first half second.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>

#include "client/invocation.h"

namespace zot::client {

class ProgressLine {
  public:
    // How often to Draw.
    static constexpr std::chrono::milliseconds kPeriod{200};

    // Silent for a total of 0. `most` is how long all may take, 0 if nobody knows.
    ProgressLine(const Console& console, size_t total, std::chrono::milliseconds most = {});
    ~ProgressLine() { Clear(); }
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;

    bool Watched() const { return total_ > 0; }
    // Counts one more as done.
    void Count(bool failed);
    void Draw();
    // Makes room for other output.
    void Clear();

  private:
    using Clock = std::chrono::steady_clock;

    const Console& console_;
    size_t total_;
    std::chrono::milliseconds most_;
    size_t done_ = 0;
    size_t failed_ = 0;
    bool shown_ = false;
    Clock::time_point begin_ = Clock::now();
};

}  // namespace zot::client
