#include "base/sockets.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <limits>
#include <memory>

#include "base/peer_watch.h"
#include "base/platform/system.h"
#include "base/resolver.h"

namespace zot {
namespace {

constexpr int kListenBacklog = 512;
constexpr size_t kHostNameSize = 254;
constexpr size_t kSystemTextSize = 1024;

// How often a wait checks that somebody still wants its outcome.
constexpr int64_t kLookEveryMs = 5000;

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

struct FreeAddresses {
    void operator()(addrinfo* list) const noexcept { freeaddrinfo(list); }
};
using AddressList = std::unique_ptr<addrinfo, FreeAddresses>;

void SetOption(int socket, int option, int value) {
    setsockopt(socket, SOL_SOCKET, option, &value, sizeof value);
}

int32_t Fail(NetResult code, int errorNumber, VyString& errorText) {
    char text[kSystemTextSize];
    SystemErrorText(errorNumber, text, sizeof text);
    errorText = text;
    return code;
}

int32_t TimedOut(VyString& errorText) {
    errorText = "Timeout";
    return kNetTimeout;
}

// getaddrinfo for IPv4 streams. Returns its error code, 0 on success.
int Lookup(const char* node, const char* service, int flags, AddressList& list) {
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = flags;
    addrinfo* found = nullptr;
    int result = getaddrinfo(node, service, &hints, &found);
    if (result == 0) list.reset(found);
    return result;
}

// Dead name servers must hold up a request no longer than its own limit or, where it has none, no
// longer than a dead peer would.
int32_t ResolveService(std::string_view host, int32_t port, int64_t timeoutMs, sockaddr_in& address,
                       VyString& errorText) {
    address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    if (timeoutMs <= 0) timeoutMs = kDefaultTcpTimeoutMs;
    return ResolveHostWithin(host, timeoutMs, address.sin_addr.s_addr, errorText);
}

template <typename Call>
ssize_t RetryInterrupted(Call call) {
    ssize_t result;
    do {
        result = call();
    } while (result < 0 && errno == EINTR);
    return result;
}

// Waits until the socket is ready for `events`. Returns above 0 when it is, 0 on time-out, below 0
// with errno on failure; a negative time is a failure, as it is for select.
int WaitFor(int socket, short events, int64_t timeoutMs) {
    if (timeoutMs < 0) {
        errno = EINVAL;
        return -1;
    }
    Clock::time_point deadline = Clock::now() + milliseconds(timeoutMs);
    for (int64_t left = timeoutMs;;) {
        pollfd entry{socket, events, 0};
        int ready = poll(&entry, 1, static_cast<int>(std::min(left, kLookEveryMs)));
        if (ready > 0 || (ready < 0 && errno != EINTR)) return ready;
        left = std::chrono::ceil<milliseconds>(deadline - Clock::now()).count();
        if (left <= 0 || WorksInVain()) return 0;
    }
}

bool IsConnecting(int connectError) {
    switch (connectError) {
        case 0:
        case EINPROGRESS:
        case EALREADY:
        case EISCONN:
        case EINTR:  // connecting goes on without the call
            return true;
        default:
            return false;
    }
}

int32_t FinishConnect(int socket, int connectError, int32_t timeoutMs, VyString& errorText) {
    int64_t limit = timeoutMs != 0 ? timeoutMs : std::numeric_limits<int32_t>::max();
    int ready = WaitFor(socket, POLLOUT, limit);
    if (ready == 0) return TimedOut(errorText);
    if (ready < 0) return Fail(kNetConnectFailed, errno, errorText);

    int socketError = 0;
    socklen_t size = sizeof socketError;
    if (getsockopt(socket, SOL_SOCKET, SO_ERROR, &socketError, &size) != 0) {
        return Fail(kNetConnectFailed, errno, errorText);
    }
    if (socketError == 0 && size == sizeof socketError) return kNetOk;
    // The text belongs to the errno of connect ("Operation now in progress"), not to the socket's
    // own error: servers know a refused connection by this text.
    return Fail(kNetConnectFailed, connectError != 0 ? connectError : socketError, errorText);
}

// Turns the result of a receive call into the result of an exchange.
int32_t Received(ssize_t count, VyString& errorText) {
    if (count >= 0) return static_cast<int32_t>(count);
    if (errno == ETIMEDOUT) return TimedOut(errorText);
    return Fail(kNetReceiveFailed, errno, errorText);
}

}  // namespace

uint32_t LocalHostAddress() {
    char name[kHostNameSize + 1] = "";  // a name that was cut may lack its NUL
    uint32_t address = 0;
    VyString ignored;
    if (gethostname(name, kHostNameSize) != 0) return 0;
    return ResolveHost(name, address, ignored) == kNetOk ? address : 0;
}

int32_t UdpOpen(UniqueFd& socket, sockaddr_in& address, std::string_view host, int32_t port,
                int64_t timeoutMs, VyString& errorText) {
    socket.Reset();
    int32_t resolved = ResolveService(host, port, timeoutMs, address, errorText);
    if (resolved != kNetOk) return resolved;
    socket.Reset(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    return socket ? kNetOk : Fail(kNetSocketFailed, errno, errorText);
}

int32_t UdpSend(int socket, const sockaddr_in& address, std::string_view data,
                VyString& errorText) {
    ssize_t sent = RetryInterrupted([&] {
        return sendto(socket, data.data(), data.size(), MSG_NOSIGNAL,
                      reinterpret_cast<const sockaddr*>(&address), sizeof address);
    });
    return sent < 0 ? Fail(kNetSendFailed, errno, errorText) : static_cast<int32_t>(sent);
}

int32_t UdpRequest(std::string_view host, int32_t port, int32_t timeoutSeconds,
                   std::string_view sendData, std::span<char> receiveBuffer, VyString& errorText) {
    UniqueFd socket;
    sockaddr_in address;
    const int64_t timeoutMs = int64_t{timeoutSeconds} * 1000;
    int32_t result = UdpOpen(socket, address, host, port, timeoutMs, errorText);
    if (result != kNetOk) return result;

    int32_t sent = sendData.empty() ? 0 : UdpSend(socket.Get(), address, sendData, errorText);
    if (sent < 0 || receiveBuffer.empty()) return sent;

    if (WaitFor(socket.Get(), POLLIN, timeoutMs) <= 0) {
        return TimedOut(errorText);
    }
    // A datagram with a bad checksum is announced and then dropped here; a blocking call would wait
    // without limit.
    ssize_t count = RetryInterrupted([&] {
        return recv(socket.Get(), receiveBuffer.data(), receiveBuffer.size(), MSG_DONTWAIT);
    });
    if (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return TimedOut(errorText);
    return Received(count, errorText);
}

int32_t TcpConnect(OutgoingSocket& socket, std::string_view host, int32_t port, int32_t timeoutMs,
                   VyString& errorText) {
    socket.Reset();
    sockaddr_in address;
    const Clock::time_point start = Clock::now();
    int32_t resolved = ResolveService(host, port, timeoutMs, address, errorText);
    if (resolved != kNetOk) return resolved;
    if (timeoutMs > 0) {
        auto spent = std::chrono::duration_cast<milliseconds>(Clock::now() - start).count();
        timeoutMs = static_cast<int32_t>(std::max<int64_t>(timeoutMs - spent, 1));
    }

    bool blocking = timeoutMs == 0;
    socket.Reset(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | (blocking ? 0 : SOCK_NONBLOCK), 0));
    if (!socket) return Fail(kNetSocketFailed, errno, errorText);

    int failed = connect(socket.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address);
    int connectError = failed != 0 ? errno : 0;
    socket.Remember(ntohs(address.sin_port));
    if (blocking && connectError == 0) return kNetOk;
    if (!IsConnecting(connectError)) return Fail(kNetConnectFailed, connectError, errorText);
    return FinishConnect(socket.Get(), connectError, timeoutMs, errorText);
}

int32_t TcpSend(int socket, std::string_view data, int32_t timeoutMs, VyString& errorText) {
    size_t sent = 0;
    while (sent < data.size()) {
        std::string_view rest = data.substr(sent);
        ssize_t count =
            RetryInterrupted([&] { return send(socket, rest.data(), rest.size(), MSG_NOSIGNAL); });
        if (count >= 0) {
            sent += static_cast<size_t>(count);
            continue;
        }
        if (errno != EAGAIN && errno != EWOULDBLOCK) break;
        int ready = WaitFor(socket, POLLOUT, timeoutMs);
        if (ready == 0 && sent == 0) return TimedOut(errorText);
        if (ready <= 0) break;
    }
    // A part that was sent counts, whatever became of the rest.
    return sent > 0 ? static_cast<int32_t>(sent) : Fail(kNetSendFailed, errno, errorText);
}

void TcpFinish(int socket, int32_t timeoutMs) {
    // Closing a connection with unread data resets it, and a peer that is reset may lose what it
    // has not read yet.
    if (shutdown(socket, SHUT_WR) != 0) return;
    const Clock::time_point deadline = Clock::now() + milliseconds(timeoutMs);
    char unread[4096];
    int64_t left = timeoutMs;
    while (left > 0 && WaitFor(socket, POLLIN, left) > 0 &&
           RetryInterrupted([&] { return recv(socket, unread, sizeof unread, MSG_DONTWAIT); }) >
               0) {
        left = std::chrono::ceil<milliseconds>(deadline - Clock::now()).count();
    }
}

int32_t TcpExchange(std::string_view host, int32_t port, int32_t timeoutMs,
                    std::string_view sendData, std::span<char> receiveBuffer, VyString& errorText) {
    OutgoingSocket socket;
    int32_t connected = TcpConnect(socket, host, port, timeoutMs, errorText);
    if (connected != kNetOk) return connected;

    if (!sendData.empty()) {
        ssize_t sent = RetryInterrupted(
            [&] { return send(socket.Get(), sendData.data(), sendData.size(), MSG_NOSIGNAL); });
        if (sent < 0) return Fail(kNetSendFailed, errno, errorText);
    }
    if (receiveBuffer.empty()) return kNetOk;

    if (WaitFor(socket.Get(), POLLIN, timeoutMs) <= 0) return TimedOut(errorText);
    ssize_t count = RetryInterrupted(
        [&] { return recv(socket.Get(), receiveBuffer.data(), receiveBuffer.size(), 0); });
    return Received(count, errorText);
}

void NoticeDeadPeers(int socket) {
    const struct {
        int level, option, value;
    } settings[] = {{SOL_SOCKET, SO_KEEPALIVE, 1},
                    {IPPROTO_TCP, TCP_KEEPIDLE, 20},
                    {IPPROTO_TCP, TCP_KEEPINTVL, 10},
                    {IPPROTO_TCP, TCP_KEEPCNT, 3}};
    for (const auto& [level, option, value] : settings) {
        setsockopt(socket, level, option, &value, sizeof value);
    }
}

UniqueFd OpenListener(std::string_view node, std::string_view service, VyString& errorText,
                      PortUse use) {
    errorText.Clear();
    VyString nodeCopy(node);
    VyString serviceCopy(service);
    AddressList list;
    int failed = Lookup(node.empty() ? nullptr : nodeCopy.Terminate(), serviceCopy.Terminate(),
                        AI_PASSIVE, list);
    if (failed != 0) {
        errorText = gai_strerror(failed);
        return UniqueFd();
    }
    for (const addrinfo* entry = list.get(); entry != nullptr; entry = entry->ai_next) {
        UniqueFd socket(
            ::socket(entry->ai_family, entry->ai_socktype | SOCK_CLOEXEC, entry->ai_protocol));
        if (!socket) continue;
        SetOption(socket.Get(), SO_REUSEADDR, 1);
        if (use == PortUse::kReserved) SetOption(socket.Get(), SO_REUSEPORT, 1);
        if (bind(socket.Get(), entry->ai_addr, entry->ai_addrlen) != 0) continue;
        if (listen(socket.Get(), kListenBacklog) == 0) {
            // From here on a second agent finds the port taken.
            if (use == PortUse::kReserved) SetOption(socket.Get(), SO_REUSEPORT, 0);
            NoteListeningPort(ntohs(reinterpret_cast<sockaddr_in*>(entry->ai_addr)->sin_port));
            return socket;
        }
        errorText = "listen() error";
        return UniqueFd();
    }
    errorText = "socket() or bind() error";
    return UniqueFd();
}

// What keeps other users off the address is the lack of SO_REUSEADDR. Binding needs the option all
// the same, because of connections that are open or were a moment ago.
UniqueFd ReserveAddress(const sockaddr_in& address) noexcept {
    UniqueFd socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!socket) return socket;
    SetOption(socket.Get(), SO_REUSEADDR, 1);
    SetOption(socket.Get(), SO_REUSEPORT, 1);
    auto* name = reinterpret_cast<const sockaddr*>(&address);
    if (bind(socket.Get(), name, sizeof address) != 0) return UniqueFd();
    SetOption(socket.Get(), SO_REUSEADDR, 0);
    return socket;
}

UniqueFd ReservePort(int listener) noexcept {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    if (getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size) != 0) return UniqueFd();
    SetOption(listener, SO_REUSEPORT, 1);
    return ReserveAddress(address);
}

}  // namespace zot
