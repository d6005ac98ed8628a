#include "agent/front.h"

#include <errno.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>

#include <atomic>
#include <cstdlib>
#include <ctime>
#include <utility>

#include "agent/session.h"
#include "agent/waker.h"
#include "base/descriptor_reserve.h"
#include "base/platform.h"
#include "commands/agent_info.h"
#include "config/ip_filter.h"
#include "config/log.h"
#include "config/settings.h"

namespace zot {
namespace {

constexpr int kAddressTextSize = 24;

constexpr timespec kTick = {1, 0};
constexpr timespec kShortPause = {0, 10L * 1000 * 1000};

}  // namespace

Front::Front(AgentServices& services, int descriptorLimit)
    : services_(services), descriptorLimit_(descriptorLimit) {}

void Front::Listen(UniqueFd socket) {
    // A connection that is gone again before accept must not make the loop wait for the next.
    fcntl(socket.Get(), F_SETFL, O_NONBLOCK);
    socket_ = std::move(socket);
}

void Front::StopListening() { socket_.Reset(); }

void Front::WaitForConnection() {
    pollfd descriptors[] = {{socket_.Get(), POLLIN, 0},
                            {services_.control.waker.Descriptor(), POLLIN, 0}};
    sigset_t none;
    sigemptyset(&none);
    int ready = ppoll(descriptors, 2, &kTick, &none);
    if (ready > 0 && descriptors[1].revents != 0) services_.control.waker.Drain();
    bool mustWait = ready < 0 && errno != EINTR;
    if (ready > 0 && descriptors[0].revents != 0) {
        if (DescriptorsRunShort()) {
            refused_ = {};  // the first that can go
            mustWait = DescriptorsRunShort();
        }
        if (!mustWait) Accept();
    }
    // What cannot be had now is asked for again a little later, not at once and for ever.
    if (mustWait) nanosleep(&kShortPause, nullptr);
}

void Front::Accept() {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    UniqueFd socket(
        accept4(socket_.Get(), reinterpret_cast<sockaddr*>(&address), &size, SOCK_CLOEXEC));
    if (!socket) {
        // A peer that has already gone away is its own affair, not a failure of the listener.
        if (errno == EINTR || errno == EAGAIN || errno == ECONNABORTED) return;
        char text[256];
        SystemErrorText(errno, text, sizeof text);
        services_.log.WriteLog(LogKind::kFailure, 0, "Accept fatal error: %s\n\n", text);
        std::exit(kExitListen);
    }
    const Peer peer = {address.sin_addr.s_addr, ntohs(address.sin_port)};
    SettingsSnapshot settings = services_.settings.Snapshot();
    if (settings->filterActive) {
        char addressText[kAddressTextSize];
        AddressToText(peer.address, addressText, sizeof addressText);
        if (!ConnectionPermitted(*settings, addressText)) {
            Refuse(std::move(socket), peer.address);
            return;
        }
    }
    services_.log.WriteLogText(LogKind::kSuccess, peer.address, "TCP connection accepted\n");
    StartSession(services_, std::move(socket), peer);
}

void Front::Refuse(UniqueFd socket, uint32_t peerAddress) {
    ++services_.counters.failedConnections;
    services_.log.WriteLogText(LogKind::kFailure, peerAddress, "TCP connection rejected\n");
    shutdown(socket.Get(), SHUT_RDWR);
    refused_[oldestRefused_] = std::move(socket);
    oldestRefused_ = (oldestRefused_ + 1) % refused_.size();
}

// Asked before every accept, since one that finds no descriptor ends the agent, and sessions take
// and give back theirs at any time.
bool Front::DescriptorsRunShort() const {
    if (descriptorLimit_ == 0) return false;
    UniqueFd lowestFree(fcntl(socket_.Get(), F_DUPFD_CLOEXEC, 0));
    if (!lowestFree) return errno == EMFILE;
    return lowestFree.Get() >= descriptorLimit_ - DescriptorReserve(descriptorLimit_);
}

}  // namespace zot
