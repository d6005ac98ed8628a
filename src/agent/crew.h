// The threads that serve: all alike, on one event queue. The thread that receives the last byte of
// a packet serves it, because handing it to another would cost as much as receiving and answering
// it.
//
// Before a handler that may take long, another thread must be free; one is started if necessary,
// and only then. The main thread notices a short handler that got stuck: it looks every few
// milliseconds while nobody is free. Threads beyond the first two leave when they have been idle
// for a while.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <span>

#include "agent/agent_control.h"
#include "agent/connection.h"
#include "agent/front.h"
#include "base/platform/readiness.h"
#include "protocol/packet.h"

namespace zot {

class Crew {
  public:
    Crew(AgentServices& services, Readiness& readiness, Front& front, PasswordKeys& passwords);

    // Starts the threads that are always there, as many as the system grants. The crew must live as
    // long as the process.
    void Start();

    // A thread of the crew calls this when it will not be back soon.
    void BeforeLongWork();

    // For the main thread: replaces threads that are missing or stuck. Returns after how many
    // milliseconds to look again at the latest.
    int64_t Watch();

  private:
    static void* Run(void* crew);
    void Work();
    bool ServeQueued();
    void ServeArrivals(Arrivals& arrivals);
    void Queue(Arrivals& arrivals);
    void NoLongerFree();
    bool MayLeave();
    void MakePlace();
    // False when the system grants none, which is logged.
    bool StartThread();

    AgentServices& services_;
    Readiness& readiness_;
    Front& front_;
    PasswordKeys& passwords_;

    // Whole packets that nobody has begun to serve.
    std::mutex queueMutex_;
    std::deque<Connection> queue_;
    std::atomic<size_t> queued_{0};

    std::atomic<int> threads_{0};
    std::atomic<int> free_{0};        // threads that have nothing to serve
    std::atomic<uint32_t> turns_{0};  // how often a thread became free again

    std::atomic<int> placesMade_{0};          // threads that left and must be replaced
    std::atomic<bool> watched_{false};        // the main thread looks often
    std::atomic<bool> nobodyWasFree_{false};  // since its last look
    uint32_t turnsSeen_ = 0;
    int stuckLooks_ = 0;
    int calmLooks_ = 0;
    std::atomic<int64_t> lastFailure_{-1};  // the second of the last failed start
};

}  // namespace zot
