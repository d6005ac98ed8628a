// The inside of the engine: its queue, its timers and its connections.
#pragma once

#include <poll.h>

#include <atomic>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "base/owners.h"
#include "base/platform/readiness.h"
#include "client/engine.h"
#include "client/name_lookup.h"
#include "client/reply_receiver.h"

namespace zot::client {

class Engine::Loop {
  public:
    using Clock = Deadline::Clock;

    explicit Loop(const Limits& limits);

    RequestId Add(Request request, OutcomeHandler handler);
    void Cancel(RequestId id);
    void After(std::chrono::milliseconds delay, std::function<void()> action);
    void Run(bool untilStopped);
    void Stop();
    void Post(std::function<void()> action);

  private:
    using Timers = std::multimap<Clock::time_point, std::function<void()>>;

    // One request. It is queued until it begins; then it resolves, connects, sends and receives.
    struct Call {
        RequestId id = 0;
        Request request;
        OutcomeHandler handler;
        std::string peer;  // the address and port to which the limit per host applies
        bool begun = false;
        bool connected = false;
        Clock::time_point begin{};
        std::optional<Timers::iterator> timeout;
        std::optional<Timers::iterator> slow;  // while it takes up a place
        std::vector<in_addr> addresses;        // still to be tried
        UniqueFd fd;
        bool wasAside = false;
        std::string sessionKey;
        std::string packet;
        size_t sent = 0;
        std::optional<ReplyReceiver> reply;
        in_addr peerAddress{};  // that it connects to
        in_addr ownAddress{};
    };

    struct Peer {
        std::deque<RequestId> queue;
        size_t active = 0;
        bool ready = false;  // listed in ready_
    };

    void BeginQueued();
    void Begin(Call& call);
    void SetTimeout(Call& call, Clock::time_point end);
    void ClearTimer(std::optional<Timers::iterator>& timer);
    void LeavePlace(Call& call);
    void SetAside(Call& call);
    void ServeSetAside();
    void Connect(RequestId id);
    void Connected(Call& call);
    void Advance(Call& call, short events);
    void Send(Call& call);
    void Receive(Call& call);
    void TimeOut(RequestId id);
    void Fail(Call& call, Failure failure, std::string message);
    void Finish(Call& call, Outcome outcome);
    void Release(Call& call);
    void MakeReady(const std::string& name, Peer& peer);
    bool PutBack(Call& call);
    void Pass();
    void Poll();
    void FireTimers();
    void RunPosted();
    int WaitMs() const;
    bool HasWork() const { return !calls_.empty() || !timers_.empty(); }

    Limits limits_;
    Resolver resolver_;
    std::unordered_map<RequestId, std::unique_ptr<Call>> calls_;
    std::unordered_map<std::string, Peer> peers_;
    std::deque<std::string> ready_;  // peers with a waiting request and a place for it
    std::map<int, Call*> sockets_;   // those that poll looks at
    // The sockets of requests that have waited for long, however many: polling these, too, would
    // delay the others.
    std::optional<Readiness> setAside_;
    Timers timers_;
    RequestId lastId_ = 0;
    size_t places_ = 0;  // taken places
    size_t begun_ = 0;
    bool descriptorsShort_ = false;  // nothing begins until a request has ended
    std::vector<pollfd> descriptors_;
    std::vector<char> buffer_;
    UniqueFd wakeRead_, wakeWrite_;
    std::atomic<bool> stop_{false};
    std::mutex postedMutex_;
    std::vector<std::function<void()>> posted_;
};

}  // namespace zot::client
