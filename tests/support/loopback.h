// A test's own socket on a free port of 127.0.0.1.
#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <stdexcept>
#include <string>

#include "base/owners.h"

namespace zot::test {

class Loopback {
  public:
    // A SOCK_STREAM socket listens when `backlog` is not negative; otherwise its port refuses.
    explicit Loopback(int type, int backlog = -1) : fd_(socket(AF_INET, type | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* generic = reinterpret_cast<sockaddr*>(&address);
        if (bind(fd_.Get(), generic, size) != 0 || getsockname(fd_.Get(), generic, &size) != 0 ||
            (backlog >= 0 && listen(fd_.Get(), backlog) != 0)) {
            throw std::runtime_error("loopback socket");
        }
        port_ = ntohs(address.sin_port);
    }

    int Port() const { return port_; }
    int Descriptor() const { return fd_.Get(); }
    // The first two parameter lines of a request that names this socket.
    std::string HostLines() const { return "127.0.0.1\n" + std::to_string(port_) + "\n"; }
    // From now on nothing that arrives over the loopback interface is answered: it drops packets
    // with fewer hops left than any packet has there.
    void Deafen() const { DemandHops(255); }
    // Ends that.
    void Hear() const { DemandHops(0); }
    // Waits for a client.
    UniqueFd Accept() const { return UniqueFd(accept4(fd_.Get(), nullptr, nullptr, SOCK_CLOEXEC)); }

    // Waits for one datagram and remembers where a Reply goes.
    std::string Receive() {
        socklen_t size = sizeof peer_;
        std::string data(65536, '\0');
        ssize_t count = recvfrom(fd_.Get(), data.data(), data.size(), 0,
                                 reinterpret_cast<sockaddr*>(&peer_), &size);
        data.resize(count > 0 ? static_cast<size_t>(count) : 0);
        return data;
    }
    void Reply(const std::string& data) const {
        sendto(fd_.Get(), data.data(), data.size(), 0, reinterpret_cast<const sockaddr*>(&peer_),
               sizeof peer_);
    }
    const sockaddr_in& Peer() const { return peer_; }

  private:
    void DemandHops(int hops) const {
        if (setsockopt(fd_.Get(), IPPROTO_IP, IP_MINTTL, &hops, sizeof hops) != 0)
            throw std::runtime_error("IP_MINTTL");
    }

    UniqueFd fd_;
    int port_ = 0;
    sockaddr_in peer_{};
};

// A connection to this port of 127.0.0.1.
inline UniqueFd ConnectTo(uint16_t port) {
    UniqueFd fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(fd.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        throw std::runtime_error("connection to the loopback interface");
    }
    return fd;
}

// What a stream socket receives up to its end.
inline std::string ReceiveAll(int fd) {
    std::string all;
    char part[8192];
    for (ssize_t count; (count = recv(fd, part, sizeof part, 0)) > 0;) {
        all.append(part, static_cast<size_t>(count));
    }
    return all;
}

}  // namespace zot::test
