#include "exporter/listen_address.h"

#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "base/numbers.h"
#include "client/agent_socket.h"
#include "client/text.h"

namespace zot::exporter {
namespace {

struct FreeAddresses {
    void operator()(addrinfo* list) const noexcept { freeaddrinfo(list); }
};

bool Split(const std::string& text, std::string& host, std::string& port) {
    size_t colon = text.rfind(':');
    int32_t number = -1;
    if (colon == std::string::npos) return false;
    host = text.substr(0, colon);
    port = text.substr(colon + 1);
    if (host.starts_with('[') && host.ends_with(']')) {
        host = host.substr(1, host.size() - 2);
    } else if (host.find(':') != std::string::npos) {
        return false;
    }
    return ParseInt(port, number) && number >= 0 && number <= UINT16_MAX;
}

UniqueFd Open(const addrinfo& address) {
    constexpr int kBacklog = 1024;
    const int yes = 1, no = 0;
    UniqueFd fd(socket(address.ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!fd) return fd;
    setsockopt(fd.Get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    if (address.ai_family == AF_INET6) {
        setsockopt(fd.Get(), IPPROTO_IPV6, IPV6_V6ONLY, &no, sizeof no);
    }
    if (bind(fd.Get(), address.ai_addr, address.ai_addrlen) == 0 &&
        listen(fd.Get(), kBacklog) == 0) {
        return fd;
    }
    return UniqueFd();
}

std::string BoundAddress(int fd) {
    sockaddr_storage address = {};
    socklen_t size = sizeof address;
    char host[NI_MAXHOST], port[NI_MAXSERV];
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    if (getsockname(fd, generic, &size) != 0 ||
        getnameinfo(generic, size, host, sizeof host, port, sizeof port,
                    NI_NUMERICHOST | NI_NUMERICSERV) != 0) {
        return {};
    }
    bool six = address.ss_family == AF_INET6;
    return client::Concat({six ? "[" : "", host, six ? "]:" : ":", port});
}

}  // namespace

UniqueFd ListenAt(const std::string& text, std::string& bound, std::string& error) {
    std::string host, port;
    if (!Split(text, host, port)) {
        error = text + " is not an address with a port, like 127.0.0.1:9965 or [::1]:9965";
        return {};
    }
    addrinfo hints = {};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_PASSIVE | AI_NUMERICSERV;
    addrinfo* found = nullptr;
    int result = getaddrinfo(host.empty() ? nullptr : host.c_str(), port.c_str(), &hints, &found);
    if (result != 0) {
        error = client::Concat({"cannot find ", host, ": ", gai_strerror(result)});
        return {};
    }
    std::unique_ptr<addrinfo, FreeAddresses> list(found);
    // For all addresses a socket of IPv6 takes both kinds; where there is none, IPv4 is left.
    for (int family : {AF_INET6, AF_INET}) {
        for (const addrinfo* address = list.get(); address; address = address->ai_next) {
            if (address->ai_family != family) continue;
            if (UniqueFd fd = Open(*address)) {
                bound = BoundAddress(fd.Get());
                return fd;
            }
        }
    }
    error = client::Concat({"cannot listen at ", text, ": ", client::ErrorText(errno)});
    return {};
}

}  // namespace zot::exporter
