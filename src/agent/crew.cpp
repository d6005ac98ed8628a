#include "agent/crew.h"

#include <array>
#include <exception>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "agent/session.h"
#include "agent/signals.h"
#include "agent/waker.h"
#include "base/clock.h"
#include "base/peer_watch.h"
#include "base/platform/system.h"
#include "base/thread.h"
#include "base/wipe.h"
#include "config/log.h"

namespace zot {
namespace {

constexpr int kFirstThreads = 2;
constexpr int kIdleMs = 5000;

constexpr int64_t kSeldomMs = 1000;
constexpr int64_t kOftenMs = 5;
// A crew that makes no progress gets help after this many looks, even when nobody asks for
// anything. After as many looks at one that always had a free thread the main thread looks seldom
// again, because waking it for each busy moment would cost more.
constexpr int kPatientLooks = 20;

}  // namespace

Crew::Crew(AgentServices& services, Readiness& readiness, Front& front, PasswordKeys& passwords)
    : services_(services), readiness_(readiness), front_(front), passwords_(passwords) {}

void Crew::Start() {
    while (threads_.load() < kFirstThreads && StartThread()) {
    }
}

bool Crew::StartThread() {
    ++threads_;
    ++free_;
    const int error = StartDetachedThread(Run, this);
    if (error == 0) return true;
    --free_;
    --threads_;
    const int64_t second = MonotonicSeconds();
    if (lastFailure_.exchange(second) == second) return false;
    char text[256];
    SystemErrorText(error, text, sizeof text);
    services_.log.WriteLog(LogKind::kFailure, 0, "Cannot start session thread: %s\n", text);
    return false;
}

void* Crew::Run(void* crew) {
    AlternateStack faultStack;
    static_cast<Crew*>(crew)->Work();
    return nullptr;
}

void Crew::Work() {
    LogBatch lines(services_.log);
    Arrivals arrivals;
    for (;;) {
        try {
            front_.Resume();
            if (WorkFor::StaysBack()) return MakePlace();
            if (ServeQueued()) continue;
            services_.log.Flush();
            const bool isExtra = threads_.load() > kFirstThreads;
            const std::optional<uint64_t> tag = readiness_.Wait(isExtra ? kIdleMs : -1);
            if (!tag && MayLeave()) return;
            if (!tag || *tag == Readiness::kWoken) continue;
            NoLongerFree();
            front_.Handle(*tag, free_.load() == 0, arrivals);
            ServeArrivals(arrivals);
        } catch (const std::exception& error) {
            // Usually out of memory: this connection is lost, the agent is not.
            services_.log.WriteLog(LogKind::kFailure, 0, "Session failed: %s\n", error.what());
            arrivals.first = {};
            arrivals.firstSize = 0;
            arrivals.others.clear();
        }
        ++turns_;
        ++free_;
    }
}

// Serves one whole packet; false when there is none.
bool Crew::ServeQueued() {
    if (queued_.load() == 0) return false;
    Connection connection;
    {
        std::lock_guard<std::mutex> lock(queueMutex_);
        if (queue_.empty()) return false;
        connection = std::move(queue_.front());
        queue_.pop_front();
        --queued_;
    }
    NoLongerFree();
    Session(services_, *this, passwords_, std::move(connection)).Serve();
    ++turns_;
    ++free_;
    return true;
}

void Crew::ServeArrivals(Arrivals& arrivals) {
    if (!arrivals.others.empty()) Queue(arrivals);
    if (arrivals.firstSize == 0) return;
    const std::span<char> packet(arrivals.firstPacket.data(), std::exchange(arrivals.firstSize, 0));
    Session(services_, *this, passwords_, std::move(arrivals.first)).Serve(packet);
    WipeMemory(packet.data(), packet.size());
}

void Crew::Queue(Arrivals& arrivals) {
    // The threads that serve them write their next lines.
    services_.log.Flush();
    {
        std::lock_guard<std::mutex> lock(queueMutex_);
        for (Connection& connection : arrivals.others) {
            queue_.push_back(std::move(connection));
            ++queued_;
        }
    }
    arrivals.others.clear();
    if (free_.load() > 0) readiness_.Wake();
}

void Crew::BeforeLongWork() {
    services_.log.Flush();
    if (free_.load() == 0) {
        StartThread();
    } else if (queued_.load() > 0) {
        readiness_.Wake();
    }
}

void Crew::NoLongerFree() {
    if (--free_ > 0) return;
    nobodyWasFree_.store(true);
    if (!watched_.load() && !watched_.exchange(true)) services_.control.waker.Wake();
}

// A thread leaves only when another is free to take its place.
bool Crew::MayLeave() {
    if (--free_ > 0) {
        int threads = threads_.load();
        while (threads > kFirstThreads) {
            if (threads_.compare_exchange_weak(threads, threads - 1)) return true;
        }
    }
    ++free_;
    return false;
}

// This thread ends: it is too slow for quick requests by now, and one that it started would be too.
void Crew::MakePlace() {
    ++placesMade_;
    --threads_;
    NoLongerFree();
    services_.control.waker.Wake();
}

int64_t Crew::Watch() {
    while (placesMade_.load() > 0 && StartThread()) --placesMade_;
    if (threads_.load() < kFirstThreads) Start();
    if (!watched_.load()) return kSeldomMs;
    const uint32_t turns = turns_.load();
    const bool moved = turns != std::exchange(turnsSeen_, turns);
    if (!nobodyWasFree_.exchange(free_.load() == 0)) {
        stuckLooks_ = 0;
        if (++calmLooks_ < kPatientLooks) return kOftenMs;
        calmLooks_ = 0;
        watched_.store(false);
        // A thread that became busy just now may have seen `watched_` still set.
        if (!nobodyWasFree_.load()) return kSeldomMs;
        watched_.store(true);
        return kOftenMs;
    }
    calmLooks_ = 0;
    if (moved || free_.load() > 0) {
        stuckLooks_ = 0;
    } else if (queued_.load() > 0 || readiness_.Pending() || ++stuckLooks_ >= kPatientLooks) {
        stuckLooks_ = 0;
        StartThread();
    }
    return kOftenMs;
}

}  // namespace zot
