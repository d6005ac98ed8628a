#include "agent/listener.h"

#include <errno.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <utility>

#include "agent/session.h"
#include "base/children.h"
#include "base/descriptor_reserve.h"
#include "base/platform.h"
#include "base/sockets.h"
#include "config/config_file.h"
#include "config/ip_filter.h"

namespace zot {
namespace {

constexpr int kOpenAttempts = 3;
constexpr int32_t kMaxPort = 65535;
constexpr int kAddressTextSize = 24;

constexpr timespec kTick = {1, 0};
constexpr timespec kShortPause = {0, 10L * 1000 * 1000};

}  // namespace

UniqueFd OpenListeningSocket(const AgentSettings& settings, VyString& errorText) {
    // Port 0 would succeed on a port that nobody knows, a larger one on its low 16 bits.
    if (settings.port < 1 || settings.port > kMaxPort) {
        errorText = "Invalid port number";
        return UniqueFd();
    }
    char service[16];
    std::snprintf(service, sizeof service, "%d", settings.port);
    for (int attempt = 0; attempt < kOpenAttempts; ++attempt) {
        UniqueFd socket = OpenListener(settings.host, service, errorText);
        if (socket) {
            // A connection that is gone again before accept must not make the loop wait for the
            // next.
            fcntl(socket.Get(), F_SETFL, O_NONBLOCK);
            return socket;
        }
        sleep(1);
    }
    return UniqueFd();
}

Listener::Listener(AgentServices& services, UniqueFd socket, PidFile& pidFile,
                   StartArguments arguments, int descriptorLimit)
    : services_(services),
      socket_(std::move(socket)),
      openPort_(services.settings.Snapshot()->port),
      pidFile_(pidFile),
      arguments_(arguments),
      descriptorLimit_(descriptorLimit) {}

void Listener::Run() {
    for (;;) {
        try {
            HandleRequests();
            WaitForConnection();
        } catch (const std::exception& error) {
            services_.log.WriteLog(LogKind::kFailure, 0, "Listener failed: %s\n", error.what());
            nanosleep(&kShortPause, nullptr);
        }
    }
}

void Listener::HandleRequests() {
    AgentControl& control = services_.control;
    ReapFinishedChildren();
    if (TakeHangup()) {
        VyString ignoredError;
        LoadConfigLocked(services_.settings, ignoredError);
    }
    if (control.terminateRequest.load()) {
        services_.log.WriteLogText(LogKind::kStatus, 0,
                                   "Terminate request received. Terminating..\n");
        pidFile_.Remove();
        std::exit(0);
    }
    if (control.reloadRequest.load()) {
        Replace("Reload request received. Executing..\n", services_.settings.Snapshot()->agentPath,
                "Error: cannot start new instance\n");
        control.reloadRequest.store(false);
    }
    if (control.upgradeRequest.load()) {
        Replace("Upgrade request received. Executing..\n", control.UpgradeScriptPath(),
                "Error: cannot start upgrading script\n");
        control.upgradeRequest.store(false);
    }
    if (services_.settings.Snapshot()->port != openPort_) SwitchPort();
}

// Executes a new image. When that fails the listening socket stays closed: the server sees that
// the agent is not what was asked for, until a change of the port opens a new socket.
void Listener::Replace(const char* announcement, const VyString& path, const char* failure) {
    services_.log.WriteLogText(LogKind::kStatus, 0, announcement);
    socket_.Reset();
    pidFile_.Remove();
    std::fflush(nullptr);
    ExecuteImage(VyString(path).Terminate(), arguments_);
    services_.log.WriteLogText(LogKind::kFailure, 0, failure);
}

void Listener::SwitchPort() {
    Log& log = services_.log;
    VyString ignoredError;
    socket_.Reset();
    SettingsSnapshot settings = services_.settings.Snapshot();
    socket_ = OpenListeningSocket(*settings, ignoredError);
    if (socket_) {
        openPort_ = settings->port;
        log.WriteLogText(LogKind::kSuccess, 0, "Server port switching .. Ok\n");
        return;
    }
    log.WriteLogText(LogKind::kFailure, 0, "Error: cannot open new port for listening\n");
    services_.settings.Change([this](AgentSettings& changed) {
        changed.port = openPort_;
        return 1;
    });
    socket_ = OpenListeningSocket(*services_.settings.Snapshot(), ignoredError);
    if (!socket_) {
        log.WriteLogText(LogKind::kFailure, 0, "Cannot open original port either. Terminating\n");
        std::exit(kExitListen);
    }
    log.WriteLogText(LogKind::kFailure, 0, "Return to original port\n");
}

// Waits for a connection, a wake-up, a hang-up or the next second, and accepts what has come.
void Listener::WaitForConnection() {
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

void Listener::Accept() {
    sockaddr_in peer{};
    socklen_t size = sizeof peer;
    UniqueFd socket(
        accept4(socket_.Get(), reinterpret_cast<sockaddr*>(&peer), &size, SOCK_CLOEXEC));
    if (!socket) {
        // A peer that has already gone away is its own affair, not a failure of the listener.
        if (errno == EINTR || errno == EAGAIN || errno == ECONNABORTED) return;
        char text[256];
        SystemErrorText(errno, text, sizeof text);
        services_.log.WriteLog(LogKind::kFailure, 0, "Accept fatal error: %s\n\n", text);
        std::exit(kExitListen);
    }
    uint32_t peerAddress = peer.sin_addr.s_addr;
    SettingsSnapshot settings = services_.settings.Snapshot();
    if (settings->filterActive != 0) {
        char addressText[kAddressTextSize];
        AddressToText(peerAddress, addressText, sizeof addressText);
        if (!ConnectionPermitted(*settings, addressText)) {
            Refuse(std::move(socket), peerAddress);
            return;
        }
    }
    services_.log.WriteLogText(LogKind::kSuccess, peerAddress, "TCP connection accepted\n");
    StartSession(services_, std::move(socket), peerAddress);
}

void Listener::Refuse(UniqueFd socket, uint32_t peerAddress) {
    ++services_.counters.failedConnections;
    services_.log.WriteLogText(LogKind::kFailure, peerAddress, "TCP connection rejected\n");
    shutdown(socket.Get(), SHUT_RDWR);
    refused_[oldestRefused_] = std::move(socket);
    oldestRefused_ = (oldestRefused_ + 1) % refused_.size();
}

// Asked before every accept, since one that finds no descriptor ends the agent, and sessions take
// and give back theirs at any time.
bool Listener::DescriptorsRunShort() const {
    if (descriptorLimit_ == 0) return false;
    UniqueFd lowestFree(fcntl(socket_.Get(), F_DUPFD_CLOEXEC, 0));
    if (!lowestFree) return errno == EMFILE;
    return lowestFree.Get() >= descriptorLimit_ - DescriptorReserve(descriptorLimit_);
}

}  // namespace zot
