// One request, from its place in the queue to its outcome.
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

#include "client/agent_socket.h"
#include "client/engine_loop.h"

namespace zot::client {
namespace {

// A request that waits for longer is set aside; one that waits for much longer takes no place.
constexpr std::chrono::milliseconds kQuick{20}, kSlow{500};

bool IsShortOfDescriptors(int error) { return error == EMFILE || error == ENFILE; }

}  // namespace

void Engine::Loop::Begin(Call& call) {
    RequestId id = call.id;
    call.begun = true;
    ++begun_;
    ++places_;
    call.begin = Clock::now();
    auto end = call.begin + call.request.target.timeout;
    if (call.request.deadline) end = std::min(end, *call.request.deadline);
    SetTimeout(call, end);
    call.slow = timers_.emplace(call.begin + kQuick, [this, id] {
        Call& waiting = *calls_.at(id);
        SetAside(waiting);
        waiting.slow = timers_.emplace(waiting.begin + kSlow, [this, id] {
            Call& slow = *calls_.at(id);
            slow.slow.reset();  // it has left the list
            --places_;
            SetAside(slow);
        });
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
        call.peerAddress = call.addresses.back();
        call.fd = BeginConnect(call.peerAddress, target.port, error);
        call.wasAside = false;
        if (IsShortOfDescriptors(error) && PutBack(call)) return;
        call.addresses.pop_back();
        if (!call.fd) continue;
        sockets_[call.fd.Get()] = &call;
        if (error == 0) Connected(call);
        return;
    }
    Fail(call, ConnectFailure(error), ConnectMessage(target.host, target.port, error));
}

void Engine::Loop::Connected(Call& call) {
    call.connected = true;
    call.ownAddress = OwnEnd(call.fd.Get());
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
    ssize_t got = recv(call.fd.Get(), buffer_.data(), buffer_.size(), 0);
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
    if (call.connected) {
        outcome.localAddress = AddressText(call.ownAddress);
        outcome.sameHost = ntohl(call.ownAddress.s_addr) >> 24 == 127 ||
                           call.ownAddress.s_addr == call.peerAddress.s_addr;
    }
    auto found = calls_.find(call.id);
    std::unique_ptr<Call> owner = std::move(found->second);
    calls_.erase(found);
    Release(*owner);
    owner->handler(std::move(outcome));
}

}  // namespace zot::client
