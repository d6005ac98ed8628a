// The exporter's metrics about itself.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

#include "client/failure.h"
#include "exporter/fleet.h"

namespace zot::exporter {

class OwnMetrics {
  public:
    // May be called from any thread.
    void ProbeBegan() { ++running_; }
    void ProbeEnded(client::Failure failure, double seconds);
    void HttpReplied(unsigned status);
    void LoginRefused() { ++refusedLogins_; }

    std::string Text(const FleetHolder::State& fleet, unsigned openConnections) const;

  private:
    static constexpr std::array<double, 11> kBounds = {0.005, 0.01, 0.025, 0.05, 0.1, 0.25,
                                                       0.5,   1,    2.5,   5,    10};
    static constexpr size_t kFailures = 10;
    static constexpr size_t kStatusClasses = 6;

    std::atomic<int64_t> running_{0};
    std::array<std::atomic<uint64_t>, kFailures> byFailure_{};
    std::array<std::atomic<uint64_t>, kBounds.size() + 1> byDuration_{};
    std::atomic<uint64_t> totalMicroseconds_{0};
    std::array<std::atomic<uint64_t>, kStatusClasses> byStatus_{};
    std::atomic<uint64_t> refusedLogins_{0};
};

}  // namespace zot::exporter
