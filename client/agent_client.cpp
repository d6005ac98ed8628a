#include "client/agent_client.h"

#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <memory>

#include "base/platform.h"
#include "protocol/zot_const.h"

namespace zot::client {
namespace {

constexpr size_t kLengthSize = 4;
constexpr size_t kReceiveChunk = 65536;

struct FreeAddresses {
    void operator()(addrinfo* list) const noexcept { freeaddrinfo(list); }
};

std::string ErrorText(int errorNumber) {
    char buffer[256];
    if (SystemErrorText(errorNumber, buffer, sizeof(buffer))) return buffer;
    return "error " + std::to_string(errorNumber);
}

// Waits for the events, an error or a hang-up. Returns 1, or 0 with errno set.
int Wait(int fd, short events, const Deadline& deadline) {
    pollfd entry = {fd, events, 0};
    for (;;) {
        int ready = poll(&entry, 1, deadline.Remaining());
        if (ready > 0) return 1;
        if (ready < 0 && errno == EINTR) continue;
        if (ready == 0) errno = ETIMEDOUT;
        return 0;
    }
}

// A connected socket, or none with errno set.
UniqueFd ConnectTo(const addrinfo& address, const Deadline& deadline) {
    UniqueFd fd(socket(address.ai_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!fd || connect(fd.Get(), address.ai_addr, address.ai_addrlen) == 0) return fd;
    if (errno != EINPROGRESS && errno != EINTR) return {};
    if (!Wait(fd.Get(), POLLOUT, deadline)) return {};
    int error = 0;
    socklen_t size = sizeof(error);
    if (getsockopt(fd.Get(), SOL_SOCKET, SO_ERROR, &error, &size) == 0 && error == 0) return fd;
    errno = error;
    return {};
}

// One recv, waited for: the bytes received, 0 at the end of the stream, -1 with errno set.
ssize_t ReceiveSome(int fd, char* buffer, size_t size, const Deadline& deadline) {
    for (;;) {
        ssize_t got = recv(fd, buffer, size, 0);
        if (got >= 0) return got;
        if (errno == EINTR) continue;
        if ((errno != EAGAIN && errno != EWOULDBLOCK) || !Wait(fd, POLLIN, deadline)) return -1;
    }
}

}  // namespace

int Deadline::Remaining() const {
    // Rounded up: with the last part of a millisecond left, poll must not return at once.
    auto left =
        std::chrono::ceil<std::chrono::milliseconds>(end_ - std::chrono::steady_clock::now());
    return static_cast<int>(std::clamp<long long>(left.count(), 0, INT_MAX));
}

int AgentConnection::Open(const std::string& host, uint16_t port, const Deadline& deadline,
                          std::string& error) {
    socket_.Reset();
    addrinfo hints = {};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_NUMERICSERV;
    std::string service = std::to_string(port);
    addrinfo* found = nullptr;
    int failure = getaddrinfo(host.c_str(), service.c_str(), &hints, &found);
    if (failure != 0) {
        error = "cannot find host " + host + ": " + gai_strerror(failure);
        return 0;
    }
    std::unique_ptr<addrinfo, FreeAddresses> addresses(found);
    for (const addrinfo* address = found; address; address = address->ai_next) {
        socket_ = ConnectTo(*address, deadline);
        if (socket_) return 1;
    }
    error = "cannot connect to " + host + " port " + service + ": " + ErrorText(errno);
    return 0;
}

int AgentConnection::Send(std::string_view bytes, const Deadline& deadline, std::string& error) {
    while (!bytes.empty()) {
        ssize_t sent = send(socket_.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent >= 0) {
            bytes.remove_prefix(static_cast<size_t>(sent));
        } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
            if (Wait(socket_.Get(), POLLOUT, deadline)) continue;
            error = "cannot send the request: " + ErrorText(errno);
            return 0;
        } else if (errno != EINTR) {
            error = "cannot send the request: " + ErrorText(errno);
            return 0;
        }
    }
    return 1;
}

// Appends exactly `count` bytes, with memory growing as they arrive.
int AgentConnection::Receive(size_t count, const Deadline& deadline, std::string& bytes,
                             std::string& error) {
    while (count > 0) {
        size_t have = bytes.size();
        size_t chunk = std::min(count, kReceiveChunk);
        bytes.resize(have + chunk);
        ssize_t got = ReceiveSome(socket_.Get(), bytes.data() + have, chunk, deadline);
        bytes.resize(have + static_cast<size_t>(std::max<ssize_t>(got, 0)));
        if (got > 0) {
            count -= static_cast<size_t>(got);
            continue;
        }
        // The agent never tells a stranger why it hangs up, so name what can be wrong.
        if (got == 0 || errno == ECONNRESET) {
            error = bytes.empty() ? "the agent closed the connection without a reply: wrong "
                                    "password, or it does not serve this address"
                                  : "the agent closed the connection in the middle of its reply";
        } else if (errno == ETIMEDOUT) {
            error = "no complete reply within the time limit";
        } else {
            error = "cannot receive the reply: " + ErrorText(errno);
        }
        return 0;
    }
    return 1;
}

int AgentConnection::ReceiveReply(std::string_view sessionKey, const Deadline& deadline,
                                  std::string& text, std::string& error) {
    std::string packet;
    if (!Receive(kLengthSize, deadline, packet, error)) return 0;
    uint32_t length = DecodeLength(reinterpret_cast<const uint8_t*>(packet.data()), kLengthSize);
    if (length > kMaxReplySize) {
        error = "not a reply: it announces " + std::to_string(length) + " bytes";
        return 0;
    }
    if (!Receive(length, deadline, packet, error)) return 0;
    text = Decrypt(sessionKey, std::string_view(packet).substr(kLengthSize));
    return 1;
}

int AgentConnection::ReceiveUntilClose(const Deadline& deadline, std::string& bytes,
                                       std::string& error) {
    char buffer[4096];
    for (;;) {
        ssize_t got = ReceiveSome(socket_.Get(), buffer, sizeof(buffer), deadline);
        if (got == 0 || (got < 0 && errno == ECONNRESET)) return 1;
        if (got < 0) {
            error = "the connection stays open: " + ErrorText(errno);
            return 0;
        }
        bytes.append(buffer, static_cast<size_t>(got));
    }
}

int Exchange(const Target& target, std::string_view requestText, std::string& replyText,
             std::string& error) {
    std::string sessionKey = RandomSessionKey();
    if (sessionKey.empty()) {
        error = "cannot read the system's random source";
        return 0;
    }
    std::string packet = BuildRequest(target.password, sessionKey, requestText);
    Deadline deadline(target.timeout);
    AgentConnection connection;
    return connection.Open(target.host, target.port, deadline, error) &&
           connection.Send(packet, deadline, error) &&
           connection.ReceiveReply(sessionKey, deadline, replyText, error);
}

int Ask(const Target& target, std::string_view requestText, Answer& answer, std::string& error) {
    std::string text;
    if (!Exchange(target, requestText, text, error)) return 0;
    if (ParseReply(text, answer)) return 1;
    error = "not a reply: its text has no status code or no end mark";
    return 0;
}

}  // namespace zot::client
