#include "agent/listener.h"

#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <optional>
#include <utility>

#include "agent/restart.h"
#include "agent/upgrade.h"
#include "agent/waker.h"
#include "base/children.h"
#include "base/clock.h"
#include "base/loose_ends.h"
#include "config/audit_log.h"
#include "config/config_file.h"
#include "config/config_save.h"
#include "config/log.h"

namespace zot {
namespace {

constexpr int32_t kMaxPort = 65535;
constexpr int64_t kMsPerSecond = 1000;
constexpr long kNsPerMs = 1000000;
constexpr timespec kShortPause = {0, 10L * 1000 * 1000};

}  // namespace

UniqueFd OpenListeningSocket(const AgentSettings& settings, VyString& errorText, PortUse use,
                             int attempts) {
    // Port 0 would succeed on some unknown port, a larger one on its low 16 bits.
    if (settings.port < 1 || settings.port > kMaxPort) {
        errorText = "Invalid port number";
        return UniqueFd();
    }
    char service[16];
    std::snprintf(service, sizeof service, "%d", settings.port);
    for (int attempt = 0; attempt < attempts; ++attempt) {
        UniqueFd socket = OpenListener(settings.host, service, errorText, use);
        if (socket) return socket;
        sleep(1);
    }
    return UniqueFd();
}

Listener::Listener(AgentServices& services, UniqueFd socket, PidFile& pidFile,
                   const StartArguments& arguments, int descriptorLimit)
    : services_(services),
      front_(services, readiness_, passwords_, descriptorLimit),
      crew_(services, readiness_, front_, passwords_),
      openPort_(services.settings.Snapshot()->port),
      pidFile_(pidFile),
      arguments_(arguments) {
    front_.Listen(std::move(socket));
}

void Listener::Run() {
    crew_.Start();
    for (;;) {
        try {
            HandleRequests();
            WaitForWork();
        } catch (const std::exception& error) {
            services_.log.WriteLog(LogKind::kFailure, 0, "Listener failed: %s\n", error.what());
            nanosleep(&kShortPause, nullptr);
        }
    }
}

// Until the next second, a wake-up or a hang-up, or until a time-out or the crew needs a look.
void Listener::WaitForWork() {
    front_.Expire();
    front_.Resume();
    const int64_t now = MonotonicMs();
    const int64_t wait = std::min(
        {crew_.Watch(), front_.NextExpiry() - now, StartOfWholeSecond() + kMsPerSecond - now});
    pollfd descriptor = {services_.control.waker.Descriptor(), POLLIN, 0};
    const auto waitMs = static_cast<long>(std::clamp<int64_t>(wait, 0, kMsPerSecond - 1));
    const timespec limit = {0, waitMs * kNsPerMs};
    sigset_t none;
    sigemptyset(&none);
    if (ppoll(&descriptor, 1, &limit, &none) > 0) services_.control.waker.Drain();
}

void Listener::HandleRequests() {
    AgentControl& control = services_.control;
    ReapFinishedChildren();
    WriteAuditCounts(MonotonicSeconds());
    reloadDue_ = TakeHangup() || reloadDue_;
    if (reloadDue_) ReloadConfig();
    if (front_.HasFailed()) std::exit(kExitListen);
    if (control.terminateRequest.load()) Terminate();
    if (control.reloadRequest.load() || control.upgradeRequest.load()) Replace();
    if (mustReopen_) Reopen();
    SettlePort();
}

void Listener::WriteAuditCounts(int64_t now) {
    services_.control.auditLog.WriteCounts(*services_.settings.Snapshot(), now);
}

void Listener::Terminate() {
    services_.log.WriteLogText(LogKind::kStatus, 0, "Terminate request received. Terminating..\n");
    EndLooseEnds();
    SettlePort();
    WriteAuditCounts(INT64_MAX);
    pidFile_.Remove();
    std::exit(0);
}

// The next program starts with what the file says. A port that was set a moment ago and cannot be
// opened would end it, so it is tried first, after the last change of the settings.
void Listener::Replace() {
    AgentControl& control = services_.control;
    HoldLooseEnds();
    SettlePort();
    if (PortIsSettled()) {
        WriteAuditCounts(INT64_MAX);
        if (control.reloadRequest.exchange(false)) Restart();
        if (control.upgradeRequest.exchange(false)) Upgrade();
    }
    AllowLooseEnds();
}

// The port of the settings becomes the open one, or the other way round.
void Listener::SettlePort() {
    if (!failedPort_ && !PortIsSettled()) SwitchPort();
    if (failedPort_) ReturnToOpenPort();
}

bool Listener::PortIsSettled() const {
    return !failedPort_ && services_.settings.Snapshot()->port == openPort_;
}

// Never waits for a request that is changing the settings; the next pass tries again.
void Listener::ReloadConfig() {
    VyString errorText;
    std::optional<bool> loaded = TryLoadConfig(services_.settings, errorText);
    reloadDue_ = !loaded.has_value();
    if (loaded.value_or(true)) return;
    VyString reason = services_.settings.Snapshot()->loadError.ReplaceAll("\n", " ", true);
    services_.log.WriteLog(LogKind::kFailure, 0, "Reload failed: %s\n", reason.Terminate());
}

// If this fails the listening socket stays closed: the server sees that the agent did not do what
// it was asked, until a change of the port opens a new socket.
void Listener::Restart() {
    services_.log.WriteLogText(LogKind::kStatus, 0, "Reload request received. Executing..\n");
    pidFile_.Remove();
    RestartProgram(services_, arguments_, front_.StopListening());
    services_.log.WriteLogText(LogKind::kFailure, 0, "Error: cannot start new instance\n");
}

// Unlike after a failed restart, nothing is wrong with the agent's own program, so it goes on.
void Listener::Upgrade() {
    services_.log.WriteLogText(LogKind::kStatus, 0, "Upgrade request received. Executing..\n");
    UpgradeOrder order = services_.control.TakeUpgradeOrder();
    UniqueFd socket = front_.StopListening();
    const bool listened = static_cast<bool>(socket);
    if (listened) reserve_ = ReservePort(socket.Get());
    socket.Reset();
    pidFile_.Remove();
    RunUpgrade(services_, arguments_, order, reserve_);
    services_.log.WriteLogText(LogKind::kFailure, 0, "Error: cannot start upgrading script\n");
    mustReopen_ = listened;
    services_.control.upgradeGate.Leave();
}

// Opens the port again. If that fails the next pass tries again.
void Listener::Reopen() {
    AgentSettings settings = *services_.settings.Snapshot();
    settings.port = openPort_;
    VyString ignoredError;
    UniqueFd socket = OpenListeningSocket(settings, ignoredError, PortUse::kReserved);
    if (!socket) return;
    reserve_.Reset();
    mustReopen_ = false;
    pidFile_.Write(settings, services_.log);
    front_.Listen(std::move(socket));
}

// The new port is open before the old one is closed, so there is no moment without one.
void Listener::SwitchPort() {
    Log& log = services_.log;
    VyString ignoredError;
    SettingsSnapshot settings = services_.settings.Snapshot();
    // The one who ends the agent need not wait.
    const int attempts = services_.control.terminateRequest.load() ? 1 : kOpenAttempts;
    UniqueFd socket = OpenListeningSocket(*settings, ignoredError, PortUse::kFree, attempts);
    if (socket) {
        front_.Listen(std::move(socket));
        openPort_ = settings->port;
        log.WriteLogText(LogKind::kSuccess, 0, "Server port switching .. Ok\n");
        return;
    }
    log.WriteLogText(LogKind::kFailure, 0, "Error: cannot open new port for listening\n");
    failedPort_ = settings->port;
}

void Listener::ReturnToOpenPort() {
    Log& log = services_.log;
    if (!RestorePort()) return;  // the next pass tries again
    failedPort_.reset();
    // After a failed restart there is no old one.
    if (!front_.IsListening()) {
        VyString ignoredError;
        UniqueFd socket = OpenListeningSocket(*services_.settings.Snapshot(), ignoredError);
        if (!socket) {
            log.WriteLogText(LogKind::kFailure, 0,
                             "Cannot open original port either. Terminating\n");
            std::exit(kExitListen);
        }
        front_.Listen(std::move(socket));
    }
    log.WriteLogText(LogKind::kFailure, 0, "Return to original port\n");
}

// Puts the port back into the settings and into the file, or the next start would fail with it. If
// the port has been changed again meanwhile, that one is tried next. Does nothing and returns false
// while a request is changing the settings: the main thread does not wait for it.
bool Listener::RestorePort() {
    auto restore = [this](AgentSettings& changed) {
        if (changed.port == *failedPort_) changed.port = openPort_;
        VyString ignoredError;
        return changed.loadError.Empty() && SaveConfig(changed, ignoredError);
    };
    return services_.settings.TryChange(restore).has_value();
}

}  // namespace zot
