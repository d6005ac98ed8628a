#include "client/name_lookup.h"

#include <ares.h>
#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <map>

namespace zot::client {

struct Resolver::State {
    ares_channel channel = nullptr;
    bool open = false;
    bool closing = false;
    size_t pending = 0;
    std::map<ares_socket_t, short> sockets;
};

namespace {

struct PendingLookup {
    Resolver::Handler handler;
    size_t& pending;
    const bool& closing;
};

struct FreeAddresses {
    void operator()(ares_addrinfo* list) const noexcept { ares_freeaddrinfo(list); }
};

void Finish(void* argument, int status, int, ares_addrinfo* result) {
    std::unique_ptr<PendingLookup> lookup(static_cast<PendingLookup*>(argument));
    std::unique_ptr<ares_addrinfo, FreeAddresses> owner(result);
    --lookup->pending;
    if (lookup->closing) return;
    std::vector<in_addr> addresses;
    if (status == ARES_SUCCESS) {
        for (const ares_addrinfo_node* node = result->nodes; node; node = node->ai_next) {
            if (node->ai_family != AF_INET) continue;
            addresses.push_back(reinterpret_cast<const sockaddr_in*>(node->ai_addr)->sin_addr);
        }
        if (addresses.empty()) status = ARES_ENODATA;
    }
    lookup->handler(std::move(addresses), status == ARES_SUCCESS ? "" : ares_strerror(status));
}

}  // namespace

Resolver::Resolver() : state_(std::make_unique<State>()) {}

Resolver::~Resolver() {
    state_->closing = true;
    if (state_->open) ares_destroy(state_->channel);
}

void Resolver::Lookup(const std::string& name, Handler handler) {
    // Opened for the first name: that reads the system's files, and addresses need none of them.
    if (!state_->open) {
        ares_options options = {};
        options.sock_state_cb_data = state_.get();
        options.sock_state_cb = [](void* data, ares_socket_t socket, int readable, int writable) {
            auto& sockets = static_cast<State*>(data)->sockets;
            if (!readable && !writable) {
                sockets.erase(socket);
            } else {
                sockets[socket] = static_cast<short>((readable ? POLLIN : 0) |  //
                                                     (writable ? POLLOUT : 0));
            }
        };
        int status = ares_init_options(&state_->channel, &options, ARES_OPT_SOCK_STATE_CB);
        if (status != ARES_SUCCESS) return handler({}, ares_strerror(status));
        state_->open = true;
    }
    ares_addrinfo_hints hints = {};
    hints.ai_family = AF_INET;
    hints.ai_flags = ARES_AI_NOSORT;
    ++state_->pending;
    auto lookup = new PendingLookup{std::move(handler), state_->pending, state_->closing};
    ares_getaddrinfo(state_->channel, name.c_str(), nullptr, &hints, Finish, lookup);
}

bool Resolver::Busy() const { return state_->pending > 0; }

void Resolver::AppendDescriptors(std::vector<pollfd>& descriptors) const {
    for (const auto& [socket, events] : state_->sockets) descriptors.push_back({socket, events, 0});
}

int Resolver::WaitLimit(int limit) const {
    if (!Busy()) return limit;
    timeval most = {.tv_sec = 1, .tv_usec = 0}, buffer = {};
    timeval* wait = ares_timeout(state_->channel, &most, &buffer);
    // Rounded up, so that the wait does not end just before something is due.
    int ms = static_cast<int>(wait->tv_sec * 1000 + (wait->tv_usec + 999) / 1000);
    return limit < 0 ? ms : std::min(limit, ms);
}

void Resolver::Process(std::span<const pollfd> descriptors) {
    if (!state_->open) return;
    for (const pollfd& entry : descriptors) {
        if (entry.revents == 0 || state_->sockets.count(entry.fd) == 0) continue;
        constexpr short kRead = POLLIN | POLLERR | POLLHUP;
        ares_process_fd(state_->channel, entry.revents & kRead ? entry.fd : ARES_SOCKET_BAD,
                        entry.revents & POLLOUT ? entry.fd : ARES_SOCKET_BAD);
    }
    if (Busy()) ares_process_fd(state_->channel, ARES_SOCKET_BAD, ARES_SOCKET_BAD);
}

bool ParseAddress(const std::string& text, in_addr& address) {
    return inet_aton(text.c_str(), &address) != 0;
}

std::string AddressText(in_addr address) {
    char text[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &address, text, sizeof text);
    return text;
}

std::vector<in_addr> ResolveByDeadline(const std::string& host, const Deadline& deadline,
                                       std::string& reason) {
    in_addr dotted = {};
    if (ParseAddress(host, dotted)) return {dotted};
    Resolver resolver;
    std::vector<in_addr> addresses;
    resolver.Lookup(host, [&](std::vector<in_addr> found, std::string_view why) {
        addresses = std::move(found);
        reason = why;
    });
    while (resolver.Busy()) {
        int left = deadline.Remaining();
        if (left == 0) {
            reason = "no name server answered in time";
            return {};
        }
        std::vector<pollfd> descriptors;
        resolver.AppendDescriptors(descriptors);
        if (poll(descriptors.data(), static_cast<nfds_t>(descriptors.size()),
                 resolver.WaitLimit(left)) >= 0) {
            resolver.Process(descriptors);
        }
    }
    return addresses;
}

}  // namespace zot::client
