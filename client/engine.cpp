#include "client/engine.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>

#include "client/engine_loop.h"

namespace zot::client {
namespace {

constexpr size_t kChunk = 65536;
// What a process needs besides the connections: streams, files, name resolution, the wake-up.
constexpr size_t kDescriptorReserve = 32;

size_t SocketsAtOnce() {
    rlimit limit = {};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return SIZE_MAX;
    return std::max(static_cast<size_t>(limit.rlim_cur), kDescriptorReserve + 1) -
           kDescriptorReserve;
}

}  // namespace

Engine::Loop::Loop(const Limits& limits) : limits_(limits), buffer_(kChunk) {
    limits_.atOnce = std::max<size_t>(limits_.atOnce, 1);
    limits_.perHost = std::max<size_t>(limits_.perHost, 1);
    if (limits_.sockets == 0) limits_.sockets = SocketsAtOnce();
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) == 0) {
        wakeRead_.Reset(ends[0]);
        wakeWrite_.Reset(ends[1]);
    }
}

RequestId Engine::Loop::Add(Request request, OutcomeHandler handler) {
    auto call = std::make_unique<Call>();
    call->id = ++lastId_;
    call->peer = request.target.host + ":" + std::to_string(request.target.port);
    call->request = std::move(request);
    call->handler = std::move(handler);
    Peer& peer = peers_[call->peer];
    peer.queue.push_back(call->id);
    MakeReady(call->peer, peer);
    RequestId id = call->id;
    if (call->request.deadline) SetTimeout(*call, *call->request.deadline);
    calls_.emplace(id, std::move(call));
    return id;
}

void Engine::Loop::MakeReady(const std::string& name, Peer& peer) {
    if (peer.ready || peer.queue.empty() || peer.active >= limits_.perHost) return;
    peer.ready = true;
    ready_.push_back(name);
}

void Engine::Loop::Cancel(RequestId id) {
    auto found = calls_.find(id);
    if (found == calls_.end()) return;
    std::unique_ptr<Call> call = std::move(found->second);
    calls_.erase(found);
    Release(*call);
}

void Engine::Loop::After(std::chrono::milliseconds delay, std::function<void()> action) {
    timers_.emplace(Clock::now() + delay, std::move(action));
}

void Engine::Loop::SetTimeout(Call& call, Clock::time_point end) {
    ClearTimer(call.timeout);
    call.timeout = timers_.emplace(end, [this, id = call.id] { TimeOut(id); });
}

void Engine::Loop::ClearTimer(std::optional<Timers::iterator>& timer) {
    if (timer) timers_.erase(*timer);
    timer.reset();
}

void Engine::Loop::LeavePlace(Call& call) {
    if (!call.slow) return;
    ClearTimer(call.slow);
    --places_;
}

void Engine::Loop::SetAside(Call& call) {
    const int fd = call.fd.Get();
    if (sockets_.count(fd) == 0) return;  // its host is still looked up, or it is there already
    if (!setAside_) setAside_.emplace();
    const bool sent = call.connected && call.packet.empty();
    if (sent && call.wasAside ? setAside_->Rearm(fd, call.id)
        : sent                ? setAside_->Add(fd, call.id)
                              : setAside_->AddWriter(fd, call.id)) {
        sockets_.erase(fd);
        call.wasAside = true;
    }
}

void Engine::Loop::ServeSetAside() {
    while (auto id = setAside_->Wait(0)) {
        auto found = calls_.find(*id);
        if (found == calls_.end()) continue;
        Call& call = *found->second;
        sockets_[call.fd.Get()] = &call;
        Advance(call, POLLIN | POLLOUT);
    }
}

// Gives back everything that the call holds. The call is no longer listed, or about to be erased.
void Engine::Loop::Release(Call& call) {
    Peer& peer = peers_[call.peer];
    ClearTimer(call.timeout);
    if (call.begun) {
        --begun_;
        --peer.active;
        LeavePlace(call);
        if (call.fd) sockets_.erase(call.fd.Get());
        call.fd.Reset();
        descriptorsShort_ = false;
    } else {
        std::erase(peer.queue, call.id);
    }
    MakeReady(call.peer, peer);
    if (peer.queue.empty() && peer.active == 0 && !peer.ready) peers_.erase(call.peer);
}

void Engine::Loop::BeginQueued() {
    while (!ready_.empty() && places_ < limits_.atOnce && begun_ < limits_.sockets &&
           !descriptorsShort_) {
        std::string name = std::move(ready_.front());
        ready_.pop_front();
        Peer& peer = peers_[name];
        peer.ready = false;
        if (peer.queue.empty()) {
            if (peer.active == 0) peers_.erase(name);
            continue;
        }
        RequestId id = peer.queue.front();
        peer.queue.pop_front();
        ++peer.active;
        MakeReady(name, peer);
        Begin(*calls_.at(id));
    }
}

// When descriptors are short the request waits until another one has given its own back.
bool Engine::Loop::PutBack(Call& call) {
    if (begun_ == 1) return false;  // nobody else has any
    Peer& peer = peers_[call.peer];
    peer.queue.push_front(call.id);
    --peer.active;
    --begun_;
    LeavePlace(call);
    ClearTimer(call.timeout);
    call.begun = false;
    if (call.request.deadline) SetTimeout(call, *call.request.deadline);
    MakeReady(call.peer, peer);
    descriptorsShort_ = true;
    return true;
}

int Engine::Loop::WaitMs() const {
    int wait = -1;
    if (!timers_.empty()) wait = Deadline(timers_.begin()->first).Remaining();
    return resolver_.WaitLimit(wait);
}

void Engine::Loop::Poll() {
    descriptors_.clear();
    descriptors_.push_back({wakeRead_.Get(), POLLIN, 0});
    for (const auto& [fd, call] : sockets_) {
        bool sending = !call->connected || call->sent < call->packet.size();
        descriptors_.push_back({fd, static_cast<short>(sending ? POLLOUT : POLLIN), 0});
    }
    size_t socketsEnd = descriptors_.size();
    if (setAside_) descriptors_.push_back({setAside_->Descriptor(), POLLIN, 0});
    size_t ownCount = descriptors_.size();
    resolver_.AppendDescriptors(descriptors_);
    int ready = poll(descriptors_.data(), static_cast<nfds_t>(descriptors_.size()), WaitMs());
    if (ready <= 0) return resolver_.Process({});
    if (descriptors_[0].revents != 0) {
        char bytes[64];
        while (read(wakeRead_.Get(), bytes, sizeof bytes) == sizeof bytes) {
        }
    }
    for (size_t i = 1; i < socketsEnd; ++i) {
        if (descriptors_[i].revents == 0) continue;
        // An earlier handler may have closed this one, and another may have its number by now.
        auto socket = sockets_.find(descriptors_[i].fd);
        if (socket != sockets_.end()) Advance(*socket->second, descriptors_[i].revents);
    }
    if (socketsEnd < ownCount && descriptors_[socketsEnd].revents != 0) ServeSetAside();
    resolver_.Process(std::span(descriptors_).subspan(ownCount));
}

void Engine::Loop::FireTimers() {
    auto now = Clock::now();
    while (!timers_.empty() && timers_.begin()->first <= now) {
        auto timer = timers_.extract(timers_.begin());
        timer.mapped()();
    }
}

void Engine::Loop::RunPosted() {
    std::vector<std::function<void()>> actions;
    {
        std::lock_guard lock(postedMutex_);
        actions.swap(posted_);
    }
    for (auto& action : actions) action();
}

void Engine::Loop::Pass() {
    Poll();
    FireTimers();
    RunPosted();
}

void Engine::Loop::Run(bool untilStopped) {
    auto goesOn = [&] { return !stop_ && (untilStopped || HasWork()); };
    RunPosted();
    while (goesOn()) {
        BeginQueued();
        // When the last request fails at once, there is nothing left to wait for.
        if (goesOn()) Pass();
    }
    stop_ = false;
}

void Engine::Loop::Stop() {
    stop_ = true;
    Post([] {});
}

void Engine::Loop::Post(std::function<void()> action) {
    {
        std::lock_guard lock(postedMutex_);
        posted_.push_back(std::move(action));
    }
    // A full pipe wakes the loop too.
    ssize_t ignored = write(wakeWrite_.Get(), "", 1);
    static_cast<void>(ignored);
}

Engine::Engine() : Engine(Limits{}) {}
Engine::Engine(const Limits& limits) : loop_(std::make_unique<Loop>(limits)) {}
Engine::~Engine() = default;

RequestId Engine::Add(Request request, OutcomeHandler handler) {
    return loop_->Add(std::move(request), std::move(handler));
}
void Engine::Cancel(RequestId id) { loop_->Cancel(id); }
void Engine::After(std::chrono::milliseconds delay, std::function<void()> action) {
    loop_->After(delay, std::move(action));
}
void Engine::Run() { loop_->Run(false); }
void Engine::RunUntilStopped() { loop_->Run(true); }
void Engine::Stop() { loop_->Stop(); }
void Engine::Post(std::function<void()> action) { loop_->Post(std::move(action)); }

}  // namespace zot::client
