#include "client/engine.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "client/agent_socket.h"
#include "client/engine_loop.h"

namespace zot::client {
namespace {

constexpr std::chrono::milliseconds kSlow{500};
constexpr size_t kChunk = 65536;
// What a process needs besides the connections: streams, files, name resolution, the wake-up.
constexpr size_t kDescriptorReserve = 32;

size_t SocketsAtOnce() {
    rlimit limit = {};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return SIZE_MAX;
    return std::max(static_cast<size_t>(limit.rlim_cur), kDescriptorReserve + 1) -
           kDescriptorReserve;
}

bool IsShortOfDescriptors(int error) { return error == EMFILE || error == ENFILE; }

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

void Engine::Loop::Begin(Call& call) {
    RequestId id = call.id;
    call.begun = true;
    ++begun_;
    ++places_;
    call.begin = Clock::now();
    auto end = call.begin + call.request.target.timeout;
    if (call.request.deadline) end = std::min(end, *call.request.deadline);
    SetTimeout(call, end);
    call.slow = timers_.emplace(call.begin + kSlow, [this, id] {
        calls_.at(id)->slow.reset();  // it has left the list
        --places_;
    });
    in_addr dotted = {};
    if (ParseAddress(call.request.target.host, dotted)) {
        call.addresses = {dotted};
        return Connect(id);
    }
    resolver_.Lookup(call.request.target.host,
                     [this, id](std::vector<in_addr> found, std::string_view reason) {
                         auto known = calls_.find(id);
                         if (known == calls_.end()) return;
                         if (found.empty()) {
                             return Fail(*known->second, Failure::kResolve,
                                         "cannot find host " + known->second->request.target.host +
                                             ": " + std::string(reason));
                         }
                         std::reverse(found.begin(), found.end());
                         known->second->addresses = std::move(found);
                         Connect(id);
                     });
}

// Tries the last of the remaining addresses.
void Engine::Loop::Connect(RequestId id) {
    Call& call = *calls_.at(id);
    const Target& target = call.request.target;
    int error = 0;
    while (!call.addresses.empty()) {
        call.fd = BeginConnect(call.addresses.back(), target.port, error);
        if (IsShortOfDescriptors(error) && PutBack(call)) return;
        call.addresses.pop_back();
        if (!call.fd) continue;
        sockets_[call.fd.Get()] = &call;
        if (error == 0) Connected(call);
        return;
    }
    Fail(call, ConnectFailure(error), ConnectMessage(target.host, target.port, error));
}

// When descriptors are short the request waits until another one has given its own back.
bool Engine::Loop::PutBack(Call& call) {
    if (sockets_.empty()) return false;
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

void Engine::Loop::Connected(Call& call) {
    call.connected = true;
    call.localAddress = LocalAddress(call.fd.Get());
    call.sameHost = IsOwnHost(call.fd.Get());
    call.sessionKey = RandomSessionKey();
    if (call.sessionKey.empty()) {
        return Fail(call, Failure::kLocal, "cannot read the system's random source");
    }
    call.packet = BuildRequest(call.request.target.password, call.sessionKey, call.request.text);
    Send(call);
}

void Engine::Loop::Advance(Call& call, short events) {
    if (!call.connected) {
        int error = ConnectError(call.fd.Get());
        if (error == 0) return Connected(call);
        sockets_.erase(call.fd.Get());
        call.fd.Reset();
        if (!call.addresses.empty()) return Connect(call.id);
        const Target& target = call.request.target;
        return Fail(call, ConnectFailure(error), ConnectMessage(target.host, target.port, error));
    }
    if (call.sent < call.packet.size() && (events & (POLLOUT | POLLERR | POLLHUP))) {
        return Send(call);
    }
    Receive(call);
}

void Engine::Loop::Send(Call& call) {
    while (call.sent < call.packet.size()) {
        std::string_view rest = std::string_view(call.packet).substr(call.sent);
        ssize_t sent = send(call.fd.Get(), rest.data(), rest.size(), MSG_NOSIGNAL);
        if (sent >= 0) {
            call.sent += static_cast<size_t>(sent);
        } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
            return;
        } else if (errno == EPIPE || errno == ECONNRESET) {
            return Fail(call, Failure::kClosed, kClosedMessage);
        } else if (errno != EINTR) {
            return Fail(call, Failure::kLocal, "cannot send the request: " + ErrorText(errno));
        }
    }
    call.packet = {};
    call.sent = 0;
    call.reply.emplace(call.sessionKey, call.request.maxReply);
}

void Engine::Loop::Receive(Call& call) {
    if (!call.reply) return;
    size_t wanted = std::min(call.reply->Wanted(), buffer_.size());
    ssize_t got = recv(call.fd.Get(), buffer_.data(), wanted, 0);
    if (got < 0 && (errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK)) return;
    if (got < 0 && errno != ECONNRESET) {
        return Fail(call, Failure::kLocal, "cannot receive the reply: " + ErrorText(errno));
    }
    if (got <= 0) {
        // The agent never tells a stranger why it hangs up, so name what can be wrong.
        return call.reply->Begun() ? Fail(call, Failure::kBadReply, kBrokenOffMessage)
                                   : Fail(call, Failure::kClosed, kClosedMessage);
    }
    switch (call.reply->Take({buffer_.data(), static_cast<size_t>(got)})) {
        case ReplyReceiver::State::kMore:
            return;
        case ReplyReceiver::State::kBad:
            return Fail(call, Failure::kBadReply, call.reply->Error());
        case ReplyReceiver::State::kComplete:
            break;
    }
    Outcome outcome;
    if (!ParseReply(call.reply->Text(), outcome.answer)) {
        return Fail(call, Failure::kBadReply, kNoReplyMessage);
    }
    outcome.failure = outcome.answer.code == "200" ? Failure::kNone : Failure::kAgentCode;
    Finish(call, std::move(outcome));
}

void Engine::Loop::TimeOut(RequestId id) {
    Call& call = *calls_.at(id);
    call.timeout.reset();  // it has left the list
    if (!call.begun) return Fail(call, Failure::kTimeout, "not asked within the time limit");
    const std::string& host = call.request.target.host;
    if (call.connected) return Fail(call, Failure::kTimeout, kTimeoutMessage);
    if (call.fd) {
        return Fail(call, Failure::kConnectTimeout,
                    ConnectMessage(host, call.request.target.port, ETIMEDOUT));
    }
    Fail(call, Failure::kResolve, "cannot find host " + host + ": no name server answered in time");
}

void Engine::Loop::Fail(Call& call, Failure failure, std::string message) {
    Outcome outcome;
    outcome.failure = failure;
    outcome.message = std::move(message);
    Finish(call, std::move(outcome));
}

// Takes the call off the lists before its handler runs, which may add and cancel others.
void Engine::Loop::Finish(Call& call, Outcome outcome) {
    if (call.begun) {
        outcome.seconds = std::chrono::duration<double>(Clock::now() - call.begin).count();
    }
    outcome.localAddress = std::move(call.localAddress);
    outcome.sameHost = call.sameHost;
    auto found = calls_.find(call.id);
    std::unique_ptr<Call> owner = std::move(found->second);
    calls_.erase(found);
    Release(*owner);
    owner->handler(std::move(outcome));
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
    size_t ownCount = descriptors_.size();
    resolver_.AppendDescriptors(descriptors_);
    int ready = poll(descriptors_.data(), static_cast<nfds_t>(descriptors_.size()), WaitMs());
    if (ready <= 0) return resolver_.Process({});
    if (descriptors_[0].revents != 0) {
        char bytes[64];
        while (read(wakeRead_.Get(), bytes, sizeof bytes) > 0) {
        }
    }
    for (size_t i = 1; i < ownCount; ++i) {
        if (descriptors_[i].revents == 0) continue;
        // An earlier handler may have closed this one, and another may have its number by now.
        auto socket = sockets_.find(descriptors_[i].fd);
        if (socket != sockets_.end()) Advance(*socket->second, descriptors_[i].revents);
    }
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
