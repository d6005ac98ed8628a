#include "agent/next_agent.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>

#include "base/numbers.h"
#include "base/owners.h"
#include "base/resolver.h"
#include "base/sockets.h"
#include "base/vystring.h"
#include "config/config_keys.h"
#include "config/config_lines.h"

namespace zot {
namespace {

// The loopback address where the agent will listen on all addresses.
in_addr_t AddressToAsk(const VyString& host) {
    constexpr int64_t kResolveMs = 2000;
    in_addr_t address = INADDR_ANY;
    VyString ignoredError;
    if (host.Empty() || ResolveHostWithin(host, kResolveMs, address, ignoredError) != kNetOk ||
        address == INADDR_ANY) {
        return htonl(INADDR_LOOPBACK);
    }
    return address;
}

}  // namespace

NextAgent::NextAgent(const AgentSettings& settings, int32_t port) {
    VyString host;
    ConfigReader file;
    bool opened = file.Open(settings.configPath);
    ConfigLine parts;
    for (std::string_view line; opened && file.Next(line);) {
        const ConfigKey* key = SplitConfigLine(line, parts) ? FindConfigKey(parts.key) : nullptr;
        if (key == nullptr) continue;
        if (key->name == "host") host = parts.value;
        if (key->name == "pidfile" && !settings.interactive) pidFile_ = parts.value;
        if (key->name == "port" && port == 0) port = ToInt(parts.value);
    }
    address_.sin_family = AF_INET;
    address_.sin_port = htons(static_cast<uint16_t>(port));
    address_.sin_addr.s_addr = AddressToAsk(host);
}

bool NextAgent::HoldsPidFile() const noexcept {
    UniqueFd file(open(pidFile_.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    return file && fcntl(file.Get(), F_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

bool NextAgent::Answers() const noexcept {
    constexpr int kAnswerMs = 200;
    UniqueFd socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    int on = 1;
    setsockopt(socket.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    auto* target = reinterpret_cast<const sockaddr*>(&address_);
    pollfd event = {socket.Get(), POLLOUT, 0};
    if (connect(socket.Get(), target, sizeof address_) != 0 &&
        (errno != EINPROGRESS || poll(&event, 1, kAnswerMs) <= 0)) {
        return false;
    }
    // If nobody listens there, the system may have chosen that very port for this end, which has
    // then connected to itself.
    sockaddr_in own{};
    socklen_t size = sizeof own;
    if (getsockname(socket.Get(), reinterpret_cast<sockaddr*>(&own), &size) != 0) return false;
    if (own.sin_port == address_.sin_port && own.sin_addr.s_addr == address_.sin_addr.s_addr) {
        return false;
    }
    // An agent that only tries the port at its start resets the connections that it got.
    event.events = POLLIN;
    poll(&event, 1, kAnswerMs);
    int error = 0;
    size = sizeof error;
    return getsockopt(socket.Get(), SOL_SOCKET, SO_ERROR, &error, &size) == 0 && error == 0;
}

}  // namespace zot
