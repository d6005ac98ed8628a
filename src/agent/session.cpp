#include "agent/session.h"

#include <errno.h>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <exception>
#include <memory>
#include <new>
#include <optional>
#include <utility>

#include "agent/signals.h"
#include "agent/waker.h"
#include "base/clock.h"
#include "base/platform.h"
#include "commands/agent_info.h"
#include "config/log.h"
#include "config/settings.h"

namespace zot {
namespace {

// How much one receive takes at most. Servers can observe it: bytes behind a complete packet spoil
// it only when they come in with the packet's last receive.
constexpr size_t kReceiveSize = 1024;

// Enough for the deepest handler and the system's name resolution; thousands may exist at once.
constexpr size_t kStackSize = size_t{256} * 1024;

constexpr int64_t kMsPerSecond = 1000;
constexpr long kUsPerMs = 1000;
constexpr int32_t kClockTick = 20;  // milliseconds by which the system's waits may be short

// After so many milliseconds a silent session looks whether the time-out was changed meanwhile.
constexpr int64_t kLongestWait = 60000;

// How long a peer may take nothing of its reply, in milliseconds, where silence is allowed for
// ever.
constexpr int32_t kSendTimeout = 60000;

struct SessionStart {
    AgentServices& services;
    UniqueFd socket;
    Peer peer;
};

void* RunSession(void* argument) {
    AlternateStack faultStack;
    std::unique_ptr<SessionStart> start(static_cast<SessionStart*>(argument));
    AgentServices& services = start->services;
    Peer peer = start->peer;
    try {
        Session session(services, std::move(start->socket), peer);
        start.reset();
        session.Run();
    } catch (const std::exception& error) {
        // Out of memory, as a rule: this connection is lost, the agent is not.
        services.log.WriteLog(LogKind::kFailure, peer.address, "Session failed: %s\n",
                              error.what());
    }
    return nullptr;
}

int StartDetachedThread(void* (*entry)(void*), void* argument) {
    pthread_attr_t attributes;
    if (int error = pthread_attr_init(&attributes); error != 0) return error;
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_attr_setstacksize(&attributes, kStackSize);
    pthread_t thread;
    int error = pthread_create(&thread, &attributes, entry, argument);
    pthread_attr_destroy(&attributes);
    return error;
}

}  // namespace

Session::Session(AgentServices& services, UniqueFd socket, Peer peer)
    : services_(services),
      socket_(std::move(socket)),
      peer_(peer),
      upgrade_(services.control.upgradeGate) {
    ++services_.counters.activeConnections;
    ++services_.counters.openedConnections;
}

Session::~Session() {
    services_.log.WriteLogText(LogKind::kStatus, peer_.address,
                               "Session closed, wait for next ..\n");
    shutdown(socket_.Get(), SHUT_RDWR);
    socket_.Reset();
    packet_.Wipe();  // requests carry passwords and scripts
    request_.sessionKey.Wipe();
    --services_.counters.activeConnections;
    AgentControl& control = services_.control;
    bool upgradeAsked = upgrade_.HasOrder();
    if (terminateAsked_) control.terminateRequest.store(true);
    if (reloadAsked_) control.reloadRequest.store(true);
    if (upgradeAsked) control.RequestUpgrade(upgrade_.TakeOrder());
    if (terminateAsked_ || reloadAsked_ || upgradeAsked) control.waker.Wake();
}

void Session::Run() {
    char buffer[kReceiveSize];
    do {
        if (!WaitForData()) return;
        ssize_t received = recv(socket_.Get(), buffer, sizeof buffer, 0);
        if (received <= 0) return;
        if (!TakeBytes({buffer, static_cast<size_t>(received)})) return;
    } while (true);
}

// Sleeps until the peer has something to say. False when it was silent for too long: the time-out
// counts in whole seconds of the clock from the last byte on.
bool Session::WaitForData() {
    const int64_t silentSince = StartOfWholeSecond();
    for (;;) {
        // A server that sends an executable may take its time.
        int32_t timeout = upgrade_.InProgress() ? 0 : services_.settings.Snapshot()->timeout;
        int64_t deadline = INT64_MAX;
        if (timeout >= 1) deadline = silentSince + (timeout / kMsPerSecond + 1) * kMsPerSecond;
        int64_t wait = std::clamp<int64_t>(deadline - MonotonicMs(), 0, kLongestWait);
        pollfd descriptor = {socket_.Get(), POLLIN, 0};
        int ready = poll(&descriptor, 1, static_cast<int>(wait));
        if (ready > 0) return true;
        if (ready == 0 && MonotonicMs() >= deadline) return false;
        if (ready < 0 && errno != EINTR) return false;
    }
}

// Returns whether the session goes on after these bytes.
bool Session::TakeBytes(std::string_view bytes) {
    if (upgrade_.InProgress()) return TakeUpgradeBytes(bytes);
    size_t size = static_cast<size_t>(packet_.Length()) + bytes.size();
    // Grows with what has really come in, never with what was announced.
    if (size > packet_.Capacity()) packet_.Reserve(std::max(size, size_t{packet_.Capacity()} * 2));
    packet_.Append(bytes);
    switch (CheckPacket(packet_)) {
        case PacketState::kIncomplete:
            return true;
        case PacketState::kComplete:
            return Answer();
        case PacketState::kTooLarge:
            break;
    }
    services_.log.WriteLogText(LogKind::kStatus, peer_.address,
                               "<-- Invalid QX request received\n");
    return false;
}

bool Session::Answer() {
    SettingsSnapshot settings = services_.settings.Snapshot();
    Log& log = services_.log;
    if (!DecodeRequest(packet_, settings->password, peer_.address, log, request_)) {
        log.WriteLogText(LogKind::kStatus, peer_.address, "<-- Invalid QX request received\n");
        return false;
    }
    log.WriteLogText(LogKind::kStatus, peer_.address, "<-- Correct QX request received\n");
    RequestContext context = {{},    *settings,     services_.settings, services_.counters,
                              *this, peer_.address, peer_.port};
    Reply reply;
    bool recognised = Dispatch(request_.text, context, log, reply);
    log.WriteLog(LogKind::kStatus, peer_.address,
                 recognised ? "--> request processed (%.*s)\n"
                            : "--> request rejected or operation failed (%.*s)\n",
                 static_cast<int>(reply.Code().size()), reply.Code().data());
    Send(std::move(reply));
    return upgrade_.InProgress();
}

void Session::BeginUpgrade(std::string_view params, Reply& reply) {
    upgrade_.Begin(params, *services_.settings.Snapshot(), reply);
}

bool Session::TakeUpgradeBytes(std::string_view bytes) {
    VyString errorText;
    upgrade_.Receive(bytes, *request_.cipher, *services_.settings.Snapshot(), errorText);
    if (upgrade_.InProgress()) return true;
    Reply reply;
    if (errorText.Empty()) {
        reply.Start("200");
    } else {
        reply.Start("300", errorText);
    }
    Send(std::move(reply));
    return false;
}

// Blocks while the peer reads, however slowly, as one blocking call would; but a peer that takes
// nothing for the length of the time-out is not waited for. What ends a call before that, such as
// a peer that goes away, ends the sending: a short send is not taken up again.
void Session::Send(Reply reply) {
    const VyString sealed = SealReply(std::move(reply), *request_.cipher);
    int32_t timeout = services_.settings.Snapshot()->timeout;
    if (timeout < 1) timeout = kSendTimeout;
    timeval limit = {timeout / kMsPerSecond, timeout % kMsPerSecond * kUsPerMs};
    setsockopt(socket_.Get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    for (std::string_view rest = sealed; !rest.empty();) {
        int64_t start = MonotonicMs();
        ssize_t sent = send(socket_.Get(), rest.data(), rest.size(), MSG_NOSIGNAL);
        if (sent <= 0) return;
        rest.remove_prefix(static_cast<size_t>(sent));
        if (MonotonicMs() - start < timeout - kClockTick) return;
    }
}

void StartSession(AgentServices& services, UniqueFd socket, Peer peer) {
    std::unique_ptr<SessionStart> start(new (std::nothrow)
                                            SessionStart{services, std::move(socket), peer});
    int error = ENOMEM;
    if (start != nullptr) error = StartDetachedThread(RunSession, start.get());
    if (error == 0) {
        static_cast<void>(start.release());  // the thread's now
        return;
    }
    char text[256];
    SystemErrorText(error, text, sizeof text);
    services.log.WriteLog(LogKind::kFailure, peer.address, "Cannot start session thread: %s\n",
                          text);
}

}  // namespace zot
