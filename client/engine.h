// Asks many agents at once: one event loop in one thread, from the name to the reply.
//
//     Engine engine;
//     for (const Host& host : hosts) {
//         engine.Add({.target = host.target, .text = ComposeRequest("GetInfo", {})},
//                    [&](Outcome outcome) { ... });
//     }
//     engine.Run();
//
// A server gives the engine a thread of its own: RunUntilStopped there, and Post from the other
// threads. What is posted runs on the engine's thread, like every handler, and may Add, Cancel and
// After. Only Post and Stop may be called from elsewhere. A handler must not block.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "client/deadline.h"
#include "client/failure.h"
#include "client/request_packet.h"
#include "client/target.h"

namespace zot::client {

struct Request {
    Target target;     // its time limit counts from when the request leaves the queue
    std::string text;  // see ComposeRequest
    // When it must be answered at the latest, whenever it left the queue.
    std::optional<Deadline::Clock::time_point> deadline{};
    // A longer reply is bad; this limits what one agent can make us hold.
    size_t maxReply = kMaxReplySize;
};

struct Outcome {
    Failure failure = Failure::kLocal;
    std::string message;       // for people, empty when the agent answered
    Answer answer;             // filled with kNone and kAgentCode
    double seconds = 0;        // from leaving the queue to the end, name resolution included
    std::string localAddress;  // our end of the connection, in dotted form; empty if there was none
    bool sameHost = false;     // the agent runs on our own host
};

using OutcomeHandler = std::function<void(Outcome outcome)>;
using RequestId = uint64_t;

class Engine {
  public:
    struct Limits {
        // Requests at once. One that takes longer than half a second gives its place to the next,
        // so hosts that hang cost their time limit once and delay nobody.
        size_t atOnce = 256;
        // Requests at once to the same address and port; the others wait in their order. 1 asks
        // strictly in order.
        size_t perHost = 1;
        // Sockets at once; 0 means as many as the process may open, less a reserve.
        size_t sockets = 0;
    };

    Engine();
    explicit Engine(const Limits& limits);
    ~Engine();  // forgets unfinished requests; no handler is called
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;

    // Puts a request into the queue. The handler is called exactly once, from the loop, unless the
    // request is cancelled or the engine destroyed.
    RequestId Add(Request request, OutcomeHandler handler);
    // Forgets a request and closes its connection at once; its handler is never called. Ignores an
    // id that is not (or no longer) known.
    void Cancel(RequestId id);
    // Calls `action` from the loop after this delay.
    void After(std::chrono::milliseconds delay, std::function<void()> action);

    // Runs until nothing is left to do, or Stop.
    void Run();
    // Runs until Stop, even while there is nothing to do.
    void RunUntilStopped();
    // The next two may be called from any thread.
    void Stop();
    void Post(std::function<void()> action);

  private:
    class Loop;
    std::unique_ptr<Loop> loop_;
};

// Asks once, and waits for the outcome.
Outcome AskOnce(const Target& target, std::string_view requestText);

}  // namespace zot::client
