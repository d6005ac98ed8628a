#include "agent/signals.h"

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <ctime>

#include "agent/waker.h"
#include "base/clock.h"
#include "base/descriptor_limit.h"
#include "base/peer_watch.h"
#include "base/vystring.h"
#include "config/log.h"
#include "config/settings.h"

namespace zot {
namespace {

constexpr int64_t kMinUptime = 181;

std::atomic<bool> hangup{false};

// Everything that the crash handler touches, set before the handler is installed.
struct CrashContext {
    AgentServices* services = nullptr;
    PidFile* pidFile = nullptr;
    StartArguments arguments{};
};
CrashContext crash;
std::atomic<bool> restarting{false};

AgentControl* terminated = nullptr;

void OnTerminate(int) {
    const int error = errno;
    terminated->terminateRequest.store(true);
    terminated->waker.Wake();
    errno = error;
}

void OnHangup(int) { hangup.store(true); }

void SetHandler(int signalNumber, void (*handler)(int), int flags) {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = flags;
    sigemptyset(&action.sa_mask);
    sigaction(signalNumber, &action, nullptr);
}

// Runs on whichever thread faulted, with any lock held anywhere: no lock, no allocation, no stdio.
// Returning would repeat the fault, so this starts the new image itself.
void OnSegmentationFault(int signalNumber) {
    AgentServices& services = *crash.services;
    const AgentSettings& settings = services.settings.ForCrashHandler();
    Log& log = services.log;
    if (!RestartsAfterCrash(services.control.startTime, MonotonicSeconds())) {
        SetHandler(signalNumber, SIG_DFL, 0);
        log.WriteFromSignal(settings, LogKind::kFailure, "Segmentation fault!!\n");
        return;
    }
    // A second thread that faults now waits here until the new image replaces the process.
    if (restarting.exchange(true)) {
        for (;;) pause();
    }
    log.WriteFromSignal(settings, LogKind::kFailure, "Segmentation fault!!\n");
    log.WriteFromSignal(settings, LogKind::kFailure, "Restarting..\n");
    log.WriteFromSignal(settings, LogKind::kStatus, "Reload request received. Executing..\n");
    crash.pidFile->Remove();
    char path[4096];
    settings.agentPath.CopyToBuffer(path, sizeof path);
    ExecuteImage(path, crash.arguments.argv, crash.arguments.envp);
    log.WriteFromSignal(settings, LogKind::kFailure, "Error: cannot start new instance\n");
    SetHandler(signalNumber, SIG_DFL, 0);
}

}  // namespace

void SetUsualSignals() {
    SetHandler(SIGCHLD, SIG_DFL, 0);
    sigset_t none;
    sigemptyset(&none);
    pthread_sigmask(SIG_SETMASK, &none, nullptr);
}

void IgnoreWriteSignals() {
    SetHandler(SIGPIPE, SIG_IGN, 0);
    SetHandler(SIGXFSZ, SIG_IGN, 0);
}

void InstallTerminateHandler(AgentControl& control) {
    terminated = &control;
    SetHandler(SIGTERM, OnTerminate, SA_RESTART);
    struct sigaction interrupt {};
    sigaction(SIGINT, nullptr, &interrupt);
    if (interrupt.sa_handler != SIG_IGN) SetHandler(SIGINT, OnTerminate, SA_RESTART);
}

void InstallHangupHandler() {
    sigset_t hangupOnly;
    sigemptyset(&hangupOnly);
    sigaddset(&hangupOnly, SIGHUP);
    pthread_sigmask(SIG_BLOCK, &hangupOnly, nullptr);
    SetHandler(SIGHUP, OnHangup, SA_RESTART);
}

bool TakeHangup() { return hangup.exchange(false); }

bool RestartsAfterCrash(int64_t startTime, int64_t now) { return now - startTime >= kMinUptime; }

void InstallCrashHandler(AgentServices& services, PidFile& pidFile, StartArguments arguments) {
    crash = {&services, &pidFile, arguments};
    SetHandler(SIGSEGV, OnSegmentationFault, SA_ONSTACK);
}

void ExecuteImage(const char* path, char** argv, char** envp) noexcept {
    constexpr int kBusyTries = 1500;
    constexpr timespec kBusyPause = {0, 2L * 1000 * 1000};
    // The new image inherits the mask, which must block neither the fault signal nor the hang-up.
    // The descriptor limit and the priority it finds are what it passes on to its own children.
    sigset_t none;
    sigset_t before;
    sigemptyset(&none);
    pthread_sigmask(SIG_SETMASK, &none, &before);
    RestoreDescriptorLimit();
    WorkFor::ComeForward();
    for (int i = 0; i < kBusyTries; ++i) {
        execve(path, argv, envp);
        if (errno != ETXTBSY) break;
        nanosleep(&kBusyPause, nullptr);
    }
    RaiseDescriptorLimit();
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

AlternateStack::AlternateStack() {
    stack_t stack{};
    stack.ss_sp = memory_;
    stack.ss_size = sizeof memory_;
    sigaltstack(&stack, &previous_);
}

AlternateStack::~AlternateStack() { sigaltstack(&previous_, nullptr); }

}  // namespace zot
