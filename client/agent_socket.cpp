#include "client/agent_socket.h"

#include <fcntl.h>
#include <sys/socket.h>

#include <cerrno>

#include "base/platform/system.h"
#include "client/name_lookup.h"

namespace zot::client {

UniqueFd BeginConnect(in_addr address, uint16_t port, int& error) {
    UniqueFd fd(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!fd) {
        error = errno;
        return fd;
    }
    sockaddr_in peer = {};
    peer.sin_family = AF_INET;
    peer.sin_addr = address;
    peer.sin_port = htons(port);
    bool done = connect(fd.Get(), reinterpret_cast<const sockaddr*>(&peer), sizeof peer) == 0;
    error = done ? 0 : errno;
    if (error == EINTR) error = EINPROGRESS;  // connecting goes on without the call
    if (error != 0 && error != EINPROGRESS) fd.Reset();
    return fd;
}

int ConnectError(int fd) {
    int error = 0;
    socklen_t size = sizeof error;
    return getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size) == 0 ? error : errno;
}

in_addr OwnEnd(int fd) {
    sockaddr_in own = {};
    socklen_t size = sizeof own;
    return getsockname(fd, reinterpret_cast<sockaddr*>(&own), &size) == 0 ? own.sin_addr
                                                                          : in_addr{};
}

Failure ConnectFailure(int errorNumber) {
    switch (errorNumber) {
        case ECONNREFUSED:
        case ECONNRESET:
            return Failure::kConnectRefused;
        case ETIMEDOUT:
            return Failure::kConnectTimeout;
        case EHOSTUNREACH:
        case ENETUNREACH:
        case EHOSTDOWN:
        case ENETDOWN:
            return Failure::kUnreachable;
        default:
            return Failure::kLocal;
    }
}

std::string ErrorText(int errorNumber) {
    char buffer[256];
    if (SystemErrorText(errorNumber, buffer, sizeof buffer)) return buffer;
    return "error " + std::to_string(errorNumber);
}

std::string ConnectMessage(const std::string& host, uint16_t port, int errorNumber) {
    return "cannot connect to " + host + " port " + std::to_string(port) + ": " +
           ErrorText(errorNumber);
}

}  // namespace zot::client
