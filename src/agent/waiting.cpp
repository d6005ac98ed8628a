#include "agent/waiting.h"

#include <algorithm>
#include <utility>

#include "base/owners.h"
#include "protocol/packet_intake.h"

namespace zot {

bool Waiting::Hold(Connection& connection) {
    std::lock_guard<std::mutex> lock(waitingMutex_);
    const int descriptor = connection.socket.Get();
    if (places_.size() <= static_cast<size_t>(descriptor)) {
        places_.resize(static_cast<size_t>(descriptor) + 1);
    }
    Place& place = At(descriptor);
    const bool isNew = connection.tag == 0;
    if (isNew) {
        connection.tag = uint64_t{++arrivals_} << 32 | static_cast<uint32_t>(descriptor);
        Unlink(byArrival_, descriptor);  // a former owner of this descriptor
        place.tag = connection.tag;
    }
    const bool armed = isNew ? readiness_.Add(descriptor, connection.tag)
                             : readiness_.Rearm(descriptor, connection.tag);
    if (!armed) return false;
    if (!connection.intake.IsStranger()) {
        Unlink(byArrival_, descriptor);
    } else if (isNew) {
        LinkLast(byArrival_, descriptor);
    } else if (!place.byArrival.in) {
        LinkFirst(byArrival_, descriptor);
    }
    LinkLast(bySilence_, descriptor);
    held_ += connection.intake.Held();
    place.connection = std::move(connection);
    place.waits = true;
    return true;
}

std::optional<Connection> Waiting::TakeReady(uint64_t tag) {
    std::lock_guard<std::mutex> lock(waitingMutex_);
    const auto descriptor = static_cast<uint32_t>(tag);
    if (descriptor >= places_.size()) return std::nullopt;
    const Place& place = places_[descriptor];
    if (!place.waits || place.tag != tag) return std::nullopt;
    return Take(static_cast<int>(descriptor));
}

std::optional<Connection> Waiting::TakeSilentSince(int64_t time) {
    std::lock_guard<std::mutex> lock(waitingMutex_);
    const int first = bySilence_.first;
    if (first < 0 || At(first).connection.silentSince > time) return std::nullopt;
    return TakeFromQueue(first);
}

std::optional<Connection> Waiting::TakeOldestStranger() {
    std::lock_guard<std::mutex> lock(waitingMutex_);
    while (byArrival_.first >= 0) {
        const int first = byArrival_.first;
        Unlink(byArrival_, first);
        // One that a thread is receiving from right now gets its turn back when it waits again.
        if (At(first).waits) return TakeFromQueue(first);
    }
    return std::nullopt;
}

std::optional<Connection> Waiting::TakeGreediest() {
    std::lock_guard<std::mutex> lock(waitingMutex_);
    if (held_ <= kMostHeld) return std::nullopt;
    int greediest = bySilence_.first;
    for (int at = greediest; at >= 0; at = At(at).bySilence.after) {
        if (At(at).connection.intake.Held() > At(greediest).connection.intake.Held()) {
            greediest = at;
        }
    }
    return TakeFromQueue(greediest);
}

int64_t Waiting::LongestSilence() const {
    std::lock_guard<std::mutex> lock(waitingMutex_);
    if (bySilence_.first < 0) return INT64_MAX;
    return places_[static_cast<size_t>(bySilence_.first)].connection.silentSince;
}

void Waiting::LinkLast(List& list, int descriptor) {
    Links& links = At(descriptor).*list.links;
    links = {list.last, -1, true};
    (list.last >= 0 ? (At(list.last).*list.links).after : list.first) = descriptor;
    list.last = descriptor;
}

void Waiting::LinkFirst(List& list, int descriptor) {
    Links& links = At(descriptor).*list.links;
    links = {-1, list.first, true};
    (list.first >= 0 ? (At(list.first).*list.links).before : list.last) = descriptor;
    list.first = descriptor;
}

void Waiting::Unlink(List& list, int descriptor) {
    Links& links = At(descriptor).*list.links;
    if (!std::exchange(links.in, false)) return;
    (links.before >= 0 ? (At(links.before).*list.links).after : list.first) = links.after;
    (links.after >= 0 ? (At(links.after).*list.links).before : list.last) = links.before;
}

Connection Waiting::Take(int descriptor) {
    Place& place = At(descriptor);
    Unlink(bySilence_, descriptor);
    place.waits = false;
    held_ -= place.connection.intake.Held();
    return std::move(place.connection);
}

// For a connection whose event has not come and is no longer needed.
Connection Waiting::TakeFromQueue(int descriptor) {
    readiness_.Remove(descriptor);
    return Take(descriptor);
}

}  // namespace zot
