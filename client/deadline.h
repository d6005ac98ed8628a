// A moment that bounds a whole exchange, however the peer spreads its bytes over time.
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

    // What is left for poll(), in milliseconds: 0 when the moment has passed. Rounded up: with the
    // last part of a millisecond left, poll must not return at once.
    int Remaining() const {
        auto left = std::chrono::ceil<std::chrono::milliseconds>(end_ - Clock::now());
        return static_cast<int>(std::clamp<long long>(left.count(), 0, INT_MAX));
    }
    bool Passed() const { return Clock::now() >= end_; }

  private:
    Clock::time_point end_;
};

}  // namespace zot::client
