#include "client/agent_client.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

#include "client/agent_socket.h"
#include "client/engine.h"
#include "client/name_lookup.h"
#include "client/reply_receiver.h"

namespace zot::client {
namespace {

// Waits for the events, an error or a hang-up; false with errno set.
bool Wait(int fd, short events, const Deadline& deadline) {
    pollfd entry = {fd, events, 0};
    for (;;) {
        int left = deadline.Remaining();
        int ready = left > 0 ? poll(&entry, 1, left) : 0;
        if (ready > 0) return true;
        if (ready < 0 && errno == EINTR) continue;
        if (ready == 0) errno = ETIMEDOUT;
        return false;
    }
}

// A connected socket, or none with errno set.
UniqueFd ConnectTo(in_addr address, uint16_t port, const Deadline& deadline) {
    int error = 0;
    UniqueFd fd = BeginConnect(address, port, error);
    if (error == EINPROGRESS) {
        error = Wait(fd.Get(), POLLOUT, deadline) ? ConnectError(fd.Get()) : errno;
    }
    if (error == 0) return fd;
    fd.Reset();
    errno = error;
    return fd;
}

// Waits and receives once: the bytes received, 0 at the end of the stream, -1 with errno set.
ssize_t ReceiveSome(int fd, char* buffer, size_t size, const Deadline& deadline) {
    for (;;) {
        if (!Wait(fd, POLLIN, deadline)) return -1;
        ssize_t got = recv(fd, buffer, size, 0);
        if (got >= 0) return got;
        if (errno != EINTR && errno != EAGAIN && errno != EWOULDBLOCK) return -1;
    }
}

}  // namespace

bool AgentConnection::Open(const std::string& host, uint16_t port, const Deadline& deadline,
                           std::string& error) {
    socket_.Reset();
    std::string reason;
    auto addresses = ResolveByDeadline(host, deadline, reason);
    if (addresses.empty()) {
        error = "cannot find host " + host + ": " + reason;
        return false;
    }
    for (in_addr address : addresses) {
        socket_ = ConnectTo(address, port, deadline);
        if (socket_) return true;
    }
    error = ConnectMessage(host, port, errno);
    return false;
}

bool AgentConnection::Send(std::string_view bytes, const Deadline& deadline, std::string& error) {
    while (!bytes.empty()) {
        ssize_t sent = send(socket_.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent >= 0) {
            bytes.remove_prefix(static_cast<size_t>(sent));
            continue;
        }
        bool full = errno == EAGAIN || errno == EWOULDBLOCK;
        if (errno == EINTR || (full && Wait(socket_.Get(), POLLOUT, deadline))) continue;
        error = "cannot send the request: " + ErrorText(errno);
        return false;
    }
    return true;
}

bool AgentConnection::ReceiveReply(std::string_view sessionKey, const Deadline& deadline,
                                   std::string& text, std::string& error) {
    ReplyReceiver reply(sessionKey, kMaxReplySize);
    char buffer[65536];
    for (auto state = ReplyReceiver::State::kMore; state == ReplyReceiver::State::kMore;) {
        ssize_t got = ReceiveSome(socket_.Get(), buffer, sizeof buffer, deadline);
        if (got > 0) {
            state = reply.Take({buffer, static_cast<size_t>(got)});
        } else if (got == 0 || errno == ECONNRESET) {
            // The agent never tells a stranger why it hangs up, so name what can be wrong.
            error = reply.Begun() ? kBrokenOffMessage : kClosedMessage;
            return false;
        } else {
            error = errno == ETIMEDOUT ? kTimeoutMessage
                                       : "cannot receive the reply: " + ErrorText(errno);
            return false;
        }
        if (state == ReplyReceiver::State::kBad) {
            error = reply.Error();
            return false;
        }
    }
    text = reply.Text();
    return true;
}

Outcome AskOnce(const Target& target, std::string_view requestText) {
    Engine engine;
    Outcome result;
    engine.Add({.target = target, .text = std::string(requestText)},
               [&result](Outcome outcome) { result = std::move(outcome); });
    engine.Run();
    return result;
}

bool Ask(const Target& target, std::string_view requestText, Answer& answer, std::string& error) {
    Outcome outcome = AskOnce(target, requestText);
    answer = std::move(outcome.answer);
    error = std::move(outcome.message);
    return IsReply(outcome.failure);
}

}  // namespace zot::client
