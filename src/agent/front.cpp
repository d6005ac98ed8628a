#include "agent/front.h"

#include <errno.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <exception>
#include <memory>
#include <optional>
#include <utility>

#include "agent/waker.h"
#include "base/clock.h"
#include "base/descriptor_reserve.h"
#include "base/platform/system.h"
#include "base/sockets.h"
#include "commands/agent_info.h"
#include "config/audit_log.h"
#include "config/ip_filter.h"
#include "config/log.h"
#include "config/settings.h"
#include "protocol/packet_intake.h"

namespace zot {
namespace {

// No connection has this tag: theirs begin with the first arrival.
constexpr uint64_t kListenerTag = 0;

constexpr int kAddressTextSize = 24;
constexpr size_t kMostAtOnce = 16;
constexpr int kSingleAccepts = 64;

// After this many receives in a row a connection goes to the end of the queue.
constexpr int kMostReceives = 64;

constexpr int64_t kMsPerSecond = 1000;

}  // namespace

Front::Front(AgentServices& services, Readiness& readiness, PasswordKeys& passwords,
             int descriptorLimit)
    : services_(services),
      readiness_(readiness),
      passwords_(passwords),
      waiting_(readiness),
      descriptorLimit_(descriptorLimit) {}

void Front::Listen(UniqueFd socket) {
    // A connection that is gone before accept must not make a thread wait for the next one.
    fcntl(socket.Get(), F_SETFL, O_NONBLOCK);
    // Accepted connections inherit it.
    NoticeDeadPeers(socket.Get());
    std::lock_guard<std::mutex> lock(listenMutex_);
    if (socket_) readiness_.Remove(socket_.Get());
    socket_ = std::move(socket);
    paused_.store(false);
    if (!readiness_.Add(socket_.Get(), kListenerTag)) Fail(errno);
}

UniqueFd Front::StopListening() {
    std::lock_guard<std::mutex> lock(listenMutex_);
    if (socket_) readiness_.Remove(socket_.Get());
    return std::move(socket_);
}

void Front::Handle(uint64_t tag, bool alone, Arrivals& arrivals) {
    if (tag != kListenerTag) {
        if (std::optional<Connection> connection = waiting_.TakeReady(tag)) {
            Receive(*connection, arrivals);
        }
        return;
    }
    Accepted accepted[kMostAtOnce];
    const size_t count = AcceptSome(std::span(accepted, alone ? kMostAtOnce : 1));
    for (Accepted& one : std::span(accepted, count)) {
        const uint32_t peerAddress = one.peer.address;
        try {
            Welcome(one, arrivals);
        } catch (const std::exception& error) {
            // Usually out of memory: this connection is lost, the others are not.
            services_.log.WriteLog(LogKind::kFailure, peerAddress, "Session failed: %s\n",
                                   error.what());
        }
    }
}

// Arms the listening socket again before anything is done with the new connections, so that others
// accept while a handler runs.
size_t Front::AcceptSome(std::span<Accepted> accepted) {
    std::lock_guard<std::mutex> lock(listenMutex_);
    // Looking for a second connection in vain costs a call: after a time without one, only the next
    // events show whether there is one again.
    const bool many = accepted.size() > 1 && --singleAccepts_ < 0;
    const size_t most = many ? accepted.size() : 1;
    size_t count = 0;
    while (count < most && AcceptOne(accepted[count])) ++count;
    if (many) singleAccepts_ = count > 1 ? 0 : kSingleAccepts;
    if (socket_ && !paused_.load() && !failed_.load()) {
        readiness_.Rearm(socket_.Get(), kListenerTag);
    }
    return count;
}

// Returns false when there is nothing more to accept now.
bool Front::AcceptOne(Accepted& accepted) {
    if (!socket_ || paused_.load()) return false;
    sockaddr_in address{};
    socklen_t size = sizeof address;
    accepted.socket.Reset(
        accept4(socket_.Get(), reinterpret_cast<sockaddr*>(&address), &size, SOCK_CLOEXEC));
    if (accepted.socket) {
        accepted.peer = {address.sin_addr.s_addr, ntohs(address.sin_port)};
        if (!MakeRoom(accepted.socket.Get())) paused_.store(true);
        return true;
    }
    // A peer that has already gone away is no failure of the listener.
    if (errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK || IsErrorOfPeer(errno)) {
        return false;
    }
    const int error = errno;
    if ((error == EMFILE || error == ENFILE) && CloseStrangers(1) > 0) return false;
    // What running requests hold comes free with their end, and Resume follows.
    if (error == EMFILE && services_.counters.activeConnections.load() > 0) {
        paused_.store(true);
        return false;
    }
    Fail(error);
    return false;
}

void Front::Fail(int error) {
    char text[256];
    SystemErrorText(error, text, sizeof text);
    services_.log.WriteLog(LogKind::kFailure, 0, "Accept fatal error: %s\n\n", text);
    services_.log.Flush();
    failed_.store(true);
    services_.control.waker.Wake();
}

// The system hands out the lowest free number, so all below the newest descriptor are in use.
// Returns false when running requests alone leave too few.
bool Front::MakeRoom(int descriptor) {
    if (descriptorLimit_ == 0) return true;
    const long enough = descriptorLimit_ - DescriptorReserve(descriptorLimit_);
    if (descriptor < enough) return true;
    {
        std::lock_guard<std::mutex> lock(refusedMutex_);
        refused_ = {};  // these go first
    }
    // One place more than is missing: the next connection gets that one, and its number then proves
    // nothing.
    const auto missing = static_cast<size_t>(descriptor - enough + 2);
    return CloseStrangers(missing) == missing || !DescriptorsRunShort();
}

bool Front::DescriptorsRunShort() const {
    UniqueFd lowestFree(fcntl(socket_.Get(), F_DUPFD_CLOEXEC, 0));
    if (!lowestFree) return errno == EMFILE;
    return descriptorLimit_ != 0 &&
           lowestFree.Get() >= descriptorLimit_ - DescriptorReserve(descriptorLimit_);
}

// Returns how many were closed.
size_t Front::CloseStrangers(size_t count) {
    size_t closed = 0;
    for (; closed < count; ++closed) {
        std::optional<Connection> stranger = waiting_.TakeOldestStranger();
        if (!stranger) break;
        Close(*stranger, services_.log);
    }
    return closed;
}

void Front::Resume() {
    if (!paused_.load()) return;
    std::lock_guard<std::mutex> lock(listenMutex_);
    if (!socket_ || DescriptorsRunShort() || !paused_.exchange(false)) return;
    readiness_.Rearm(socket_.Get(), kListenerTag);
}

void Front::Welcome(Accepted& accepted, Arrivals& arrivals) {
    if (!MayComeIn(accepted)) {
        Refuse(std::move(accepted.socket), accepted.peer.address);
        return;
    }
    services_.log.WriteLogText(LogKind::kSuccess, accepted.peer.address,
                               "TCP connection accepted\n");
    Connection connection;
    connection.mark = ActiveMark(services_.counters);
    connection.socket = std::move(accepted.socket);
    connection.peer = accepted.peer;
    Receive(connection, arrivals);
}

bool Front::MayComeIn(const Accepted& accepted) {
    SettingsSnapshot settings = services_.settings.Snapshot();
    if (!settings->filterActive) return true;
    char text[kAddressTextSize];
    AddressToText(accepted.peer.address, text, sizeof text);
    return ConnectionPermitted(*settings, text);
}

void Front::Refuse(UniqueFd socket, uint32_t peerAddress) {
    ++services_.counters.failedConnections;
    services_.log.WriteLogText(LogKind::kFailure, peerAddress, "TCP connection rejected\n");
    services_.log.Flush();
    shutdown(socket.Get(), SHUT_RDWR);
    std::lock_guard<std::mutex> lock(refusedMutex_);
    refused_[oldestRefused_] = std::move(socket);
    oldestRefused_ = (oldestRefused_ + 1) % refused_.size();
}

// Takes what is there. Afterwards the connection is among the arrivals, or waiting, or closed.
void Front::Receive(Connection& connection, Arrivals& arrivals) {
    std::array<char, kReceiveSize> spare;
    auto& buffer = arrivals.firstSize == 0 ? arrivals.firstPacket : spare;
    bool heard = connection.tag == 0;
    for (int turn = 0; turn < kMostReceives; ++turn) {
        const ssize_t received =
            recv(connection.socket.Get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
        if (received < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR)) break;
        if (received <= 0) {
            Close(connection, services_.log);
            return;
        }
        const auto size = static_cast<size_t>(received);
        const PacketState state = Take(connection, {buffer.data(), size}, arrivals);
        if (state == PacketState::kComplete) return;
        if (state == PacketState::kTooLarge) {
            Reject(connection);
            return;
        }
        heard = true;
        if (size < buffer.size()) break;
    }
    if (heard) connection.silentSince = StartOfWholeSecond();
    Wait(connection);
}

// Judges the bytes of one receive. A connection whose packet is complete joins the arrivals.
PacketState Front::Take(Connection& connection, std::string_view bytes, Arrivals& arrivals) {
    const bool isFirst = bytes.data() == arrivals.firstPacket.data();
    if (isFirst && connection.intake.Empty()) {
        const PacketState state = CheckPacket(bytes);
        if (state == PacketState::kTooLarge) return state;
        if (state == PacketState::kComplete) {
            arrivals.first = std::move(connection);
            arrivals.firstSize = bytes.size();
            return state;
        }
    }
    const auto password = passwords_.For(*services_.settings.Snapshot());
    const PacketState state = connection.intake.Take(bytes, *password);
    if (state == PacketState::kComplete) arrivals.others.push_back(std::move(connection));
    return state;
}

void Front::Wait(Connection& connection) {
    // The thread that goes on with the connection writes its next lines.
    services_.log.Flush();
    const bool holdsMemory = connection.intake.Held() > 0;
    if (!waiting_.Hold(connection)) {
        char text[256];
        SystemErrorText(errno, text, sizeof text);
        services_.log.WriteLog(LogKind::kFailure, connection.peer.address, "Session failed: %s\n",
                               text);
        Close(connection, services_.log);
        return;
    }
    while (holdsMemory) {
        std::optional<Connection> greediest = waiting_.TakeGreediest();
        if (!greediest) return;
        Reject(*greediest);
    }
}

void Front::Reject(Connection& connection) {
    services_.log.WriteLogText(LogKind::kStatus, connection.peer.address,
                               "<-- Invalid QX request received\n");
    services_.control.auditLog.NoteStranger(*services_.settings.Snapshot(), connection.peer.address,
                                            MonotonicSeconds());
    Close(connection, services_.log);
}

void Front::Expire() {
    const int32_t timeout = services_.settings.Snapshot()->timeout;
    if (timeout < 1) return;
    const int64_t silentTime = (timeout / kMsPerSecond + 1) * kMsPerSecond;
    const int64_t now = MonotonicMs();
    while (std::optional<Connection> silent = waiting_.TakeSilentSince(now - silentTime)) {
        Close(*silent, services_.log);
    }
}

int64_t Front::NextExpiry() const {
    const int32_t timeout = services_.settings.Snapshot()->timeout;
    const int64_t since = waiting_.LongestSilence();
    if (timeout < 1 || since == INT64_MAX) return INT64_MAX;
    return since + (timeout / kMsPerSecond + 1) * kMsPerSecond;
}

}  // namespace zot
