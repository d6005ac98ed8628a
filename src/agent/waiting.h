// The connections whose packet is not whole yet, armed in the event queue.
//
// A connection belongs to this list or to the one thread that has taken it out. Every way out (an
// event, the time-out, a shortage) goes through the same mutex, so two threads never have the same
// connection.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>

#include "agent/connection.h"
#include "base/platform/readiness.h"

namespace zot {

class Waiting {
  public:
    // How much memory all unfinished packets may take together.
    static constexpr size_t kMostHeld = size_t{64} << 20;

    explicit Waiting(Readiness& readiness) : readiness_(readiness) {}

    // Lets the connection wait for its next bytes. If the system refuses, returns false and leaves
    // the connection with the caller.
    bool Hold(Connection& connection);

    // Each takes a connection out; nothing when there is none.
    std::optional<Connection> TakeReady(uint64_t tag);
    // The one that has been silent for longest, if it was already silent at this time.
    std::optional<Connection> TakeSilentSince(int64_t time);
    // The stranger that came first.
    std::optional<Connection> TakeOldestStranger();
    // The one that holds most, if all together hold too much.
    std::optional<Connection> TakeGreediest();

    // Since when the longest silent one has been silent; INT64_MAX when nobody waits.
    int64_t LongestSilence() const;

  private:
    // Places are indexed by descriptor. From its connection's first wait a place stays linked by
    // arrival, even while it is taken out, so that the connection gets its old turn back.
    struct Links {
        int before = -1;
        int after = -1;
        bool in = false;
    };
    struct Place {
        Connection connection;
        uint64_t tag = 0;
        bool waits = false;
        Links bySilence;
        Links byArrival;
    };
    struct List {
        Links Place::*links;
        int first = -1;
        int last = -1;
    };

    Place& At(int descriptor) { return places_[static_cast<size_t>(descriptor)]; }
    void LinkLast(List& list, int descriptor);
    void LinkFirst(List& list, int descriptor);
    void Unlink(List& list, int descriptor);
    Connection Take(int descriptor);
    Connection TakeFromQueue(int descriptor);

    Readiness& readiness_;
    mutable std::mutex waitingMutex_;
    std::deque<Place> places_;
    List bySilence_{&Place::bySilence};
    List byArrival_{&Place::byArrival};
    size_t held_ = 0;
    uint32_t arrivals_ = 0;
};

}  // namespace zot
