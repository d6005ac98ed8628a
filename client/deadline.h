// A moment that limits a whole exchange, however the peer spreads its bytes over time.
#pragma once

#include <algorithm>
#include <chrono>
#include <climits>

namespace zot::client {

class Deadline {
  public:
    using Clock = std::chrono::steady_clock;

    explicit Deadline(std::chrono::milliseconds limit) : end_(Clock::now() + limit) {}
    explicit Deadline(Clock::time_point end) : end_(end) {}

    // The time left for poll(), in milliseconds: 0 when the moment has passed. Rounded up: while
    // part of a millisecond is left, poll must not return at once.
    int Remaining() const {
        auto left = std::chrono::ceil<std::chrono::milliseconds>(end_ - Clock::now());
        return static_cast<int>(std::clamp<long long>(left.count(), 0, INT_MAX));
    }
    bool Passed() const { return Clock::now() >= end_; }

  private:
    Clock::time_point end_;
};

}  // namespace zot::client
