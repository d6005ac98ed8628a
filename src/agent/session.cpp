#include "agent/session.h"

#include <errno.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <utility>

#include "agent/crew.h"
#include "agent/front.h"
#include "agent/waker.h"
#include "base/clock.h"
#include "base/owners.h"
#include "base/peer_watch.h"
#include "base/platform/system.h"
#include "base/vystring.h"
#include "commands/agent_info.h"
#include "config/audit_log.h"
#include "config/log.h"
#include "config/settings.h"
#include "protocol/packet_intake.h"
#include "protocol/request_guard.h"

namespace zot {
namespace {

// How long, in milliseconds, a peer may take nothing of its reply: where the time-out allows
// silence for ever, and at least. A short time-out is meant for peers that say nothing, not for a
// reader on a slow line.
constexpr int32_t kSendTimeout = 60000;
constexpr int32_t kLeastSendTimeout = 5000;

// A reply of this size always fits into the buffers of a new connection.
constexpr size_t kSmallReply = 4096;

bool WouldBlock(int error) { return error == EAGAIN || error == EWOULDBLOCK; }

}  // namespace

Session::Session(AgentServices& services, Crew& crew, PasswordKeys& passwords,
                 Connection connection)
    : services_(services),
      crew_(crew),
      passwords_(passwords),
      connection_(std::move(connection)),
      upgrade_(services.control.upgradeGate) {}

Session::~Session() {
    Close(connection_, services_.log);
    request_.sessionKey.Wipe();
    AgentControl& control = services_.control;
    bool upgradeAsked = upgrade_.HasOrder();
    if (terminateAsked_) control.terminateRequest.store(true);
    if (reloadAsked_) control.reloadRequest.store(true);
    if (upgradeAsked) control.RequestUpgrade(upgrade_.TakeOrder());
    if (terminateAsked_ || reloadAsked_ || upgradeAsked) control.waker.Wake();
}

void Session::Serve() {
    ServeOpened([this](const PasswordKey& password) {
        return connection_.intake.Open(password, connection_.peer.address, services_.log, request_);
    });
}

void Session::Serve(std::span<char> packet) {
    ServeOpened([this, packet](const PasswordKey& password) {
        return DecodeRequest(packet, password, connection_.peer.address, services_.log, request_);
    });
}

template <typename Opener>
void Session::ServeOpened(Opener open) {
    Log& log = services_.log;
    const uint32_t peerAddress = connection_.peer.address;
    try {
        SettingsSnapshot settings = services_.settings.Snapshot();
        const bool valid = open(*passwords_.For(*settings)) &&
                           services_.control.requestGuard.Admits(request_, *settings, peerAddress,
                                                                 log, MonotonicSeconds());
        log.WriteLogText(
            LogKind::kStatus, peerAddress,
            valid ? "<-- Correct QX request received\n" : "<-- Invalid QX request received\n");
        if (!valid) {
            services_.control.auditLog.NoteStranger(*settings, peerAddress, MonotonicSeconds());
            return;
        }
        Answer(*settings);
        settings.reset();
        if (upgrade_.InProgress()) ReceiveUpgrade();
    } catch (const std::exception& error) {
        // Usually out of memory: this connection is lost, the agent is not.
        log.WriteLog(LogKind::kFailure, peerAddress, "Session failed: %s\n", error.what());
    }
}

void Session::Answer(const AgentSettings& settings) {
    const Peer peer = connection_.peer;
    RequestContext context = {{},    settings,     services_.settings, services_.counters,
                              *this, peer.address, peer.port};
    const int64_t start = MonotonicMs();
    Reply reply;
    PeerWatch watch(connection_.socket.Get());
    WorkFor work(&watch);
    bool recognised = Dispatch(request_.text, context, services_.log, reply);
    services_.log.WriteLog(LogKind::kStatus, peer.address,
                           recognised ? "--> request processed (%.*s)\n"
                                      : "--> request rejected or operation failed (%.*s)\n",
                           static_cast<int>(reply.Code().size()), reply.Code().data());
    services_.control.auditLog.NoteRequest(settings, peer.address, request_.text,
                                           watch.WasGone() ? "gone" : reply.Code(),
                                           MonotonicMs() - start);
    Send(std::move(reply));
}

void Session::BeforeLongWork() { crew_.BeforeLongWork(); }

void Session::BeginUpgrade(std::string_view params, Reply& reply) {
    upgrade_.Begin(params, *services_.settings.Snapshot(), reply);
}

// A server that sends an executable may take its time, so no time-out applies.
void Session::ReceiveUpgrade() {
    services_.log.Flush();
    char buffer[kReceiveSize];
    while (upgrade_.InProgress()) {
        const ssize_t received = recv(connection_.socket.Get(), buffer, sizeof buffer, 0);
        if (received <= 0) return;
        TakeUpgradeBytes({buffer, static_cast<size_t>(received)});
    }
}

void Session::TakeUpgradeBytes(std::string_view bytes) {
    VyString errorText;
    upgrade_.Receive(bytes, *request_.cipher, *services_.settings.Snapshot(), errorText);
    if (upgrade_.InProgress()) return;
    Reply reply;
    if (errorText.Empty()) {
        reply.Start("200");
    } else {
        reply.Start("300", errorText);
    }
    services_.control.auditLog.NoteRequest(*services_.settings.Snapshot(), connection_.peer.address,
                                           "UpgradeCode-end", reply.Code(), MonotonicMs() - begun_);
    Send(std::move(reply));
}

void Session::Send(Reply reply) {
    const VyString sealed = SealReply(std::move(reply), *request_.cipher);
    const std::string_view bytes = sealed;
    // The last reply carries the end of the connection with it.
    const int end = upgrade_.InProgress() ? 0 : MoreFollowsFlag();
    if (bytes.size() > kSmallReply) {
        services_.log.Flush();
        SendAtLength(bytes);
    } else if (!SendNow(bytes, end) && WouldBlock(errno)) {
        SendAtLength(bytes);
    }
}

// A short send is not continued.
bool Session::SendNow(std::string_view bytes, int flags) {
    return send(connection_.socket.Get(), bytes.data(), bytes.size(),
                flags | MSG_NOSIGNAL | MSG_DONTWAIT) >= 0;
}

// Goes on while the peer reads, however slowly, but gives up on one that takes nothing for the
// length of the time-out.
void Session::SendAtLength(std::string_view bytes) {
    int32_t timeout = services_.settings.Snapshot()->timeout;
    timeout = timeout < 1 ? kSendTimeout : std::max(timeout, kLeastSendTimeout);
    const int socket = connection_.socket.Get();
    bool lastTry = false;
    while (!bytes.empty()) {
        const ssize_t sent = send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent >= 0) {
            bytes.remove_prefix(static_cast<size_t>(sent));
            lastTry = false;
            continue;
        }
        if (!WouldBlock(errno) || lastTry) return;
        // The system reports room only when there is plenty; a little may have become free even so.
        pollfd descriptor = {socket, POLLOUT, 0};
        lastTry = poll(&descriptor, 1, timeout) <= 0;
    }
}

}  // namespace zot
