#include "agent/service_manager.h"

#include <unistd.h>

#include <charconv>
#include <cstddef>
#include <cstdlib>
#include <string_view>

#include "base/owners.h"

namespace zot {

ServiceManager::ServiceManager() {
    const char* name = std::getenv("NOTIFY_SOCKET");
    const std::string_view path = name != nullptr ? name : "";
    if (path.empty() || path.size() >= sizeof address_.sun_path) return;
    address_.sun_family = AF_UNIX;
    path.copy(address_.sun_path, path.size());
    // "@" stands for the NUL byte of a name that is in no folder.
    if (path.starts_with('@')) address_.sun_path[0] = '\0';
    size_ = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size());
}

// The process id follows the words.
void ServiceManager::Tell(std::string_view words) const noexcept {
    if (!IsThere()) return;
    char text[64];
    char* number = text + words.copy(text, sizeof text);
    const char* end = std::to_chars(number, text + sizeof text, getpid()).ptr;
    UniqueFd socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    sendto(socket.Get(), text, static_cast<size_t>(end - text), 0,
           reinterpret_cast<const sockaddr*>(&address_), size_);
}

}  // namespace zot
