#include "agent/guard.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <ctime>

#include "agent/daemon.h"
#include "agent/front.h"
#include "base/clock.h"
#include "base/files.h"
#include "base/platform/child.h"
#include "base/sockets.h"
#include "base/vystring.h"
#include "config/log.h"

namespace zot {
namespace {

constexpr char kTitle[] = "zot-upgrade-guard ";  // followed by the configuration file
constexpr char kKeptSuffix[] = ".previous";
constexpr char kLockSuffix[] = ".upgrading";
constexpr char kPreviousStarted[] = "Upgrade failed, previous agent started\n";
constexpr int64_t kPatienceMs = 30000;
constexpr timespec kPause = {0, 20L * 1000 * 1000};

// How often the guard looks. An agent that takes no hand-over must find its port free a moment
// after the copy, and may listen for a moment only. Where there should be a pid file the guard
// connects only once the agent has had time to write it.
constexpr int kShortIntervalMs = 1;
constexpr int kSearchIntervalMs = 20;
constexpr int kLongIntervalMs = 1000;
constexpr int kPidFileMs = 2000;

volatile sig_atomic_t stopped = 0;
void OnStop(int) { stopped = 1; }

void SetHandler(int number, void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    sigemptyset(&action.sa_mask);
    sigaction(number, &action, nullptr);
}

bool SameFile(const char* a, const char* b) {
    struct stat first {};
    struct stat second {};
    return lstat(a, &first) == 0 && lstat(b, &second) == 0 && first.st_dev == second.st_dev &&
           first.st_ino == second.st_ino;
}

bool CopyBytes(int from, int to) {
    char buffer[16 * 1024];
    for (;;) {
        ssize_t count = read(from, buffer, sizeof buffer);
        if (count == 0) return true;
        if (count < 0 || !WriteAll(to, {buffer, static_cast<size_t>(count)})) return false;
    }
}

}  // namespace

UpgradeGuard::UpgradeGuard(AgentServices& services, const StartArguments& arguments,
                           UpgradeOrder& order, const UniqueFd& reserve)
    : services_(services),
      settings_(services.settings.Snapshot()),
      arguments_(arguments),
      order_(order),
      reserve_(reserve.Get()),
      program_(settings_->agentPath.View()),
      kept_(program_ + kKeptSuffix),
      lockPath_(program_ + kLockSuffix),
      title_(std::string(kTitle) + settings_->configPath),
      next_(*settings_, arguments.port) {
    socklen_t size = sizeof reserveAddress_;
    holdsReserve_ = reserve_ >= 0;
    getsockname(reserve_, reinterpret_cast<sockaddr*>(&reserveAddress_), &size);
}

bool UpgradeGuard::Start() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return false;
    ear_.Reset(ends[0]);
    mouth_.Reset(ends[1]);
    environment_.emplace(arguments_.envp, -1, mouth_.Get());
    takesOver_ = TakesHandOver(order_.modulePath.c_str());
    oldTakesOver_ = TakesHandOver(program_.c_str());
    CopyArguments();
    if (!Lock()) return false;
    if (!KeepOld()) {
        LetGo();
        return false;
    }
    deadline_ = MonotonicMs() + kPatienceMs;
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    pid_ = fork();
    if (pid_ == 0) Run();
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (pid_ < 0) {
        LetGo();
        return false;
    }
    LeaveOpen(mouth_.Get());
    return true;
}

void UpgradeGuard::CallOff() {
    kill(pid_, SIGKILL);
    while (waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
    }
    manager_.ClaimService();
    LetGo();
}

// False while another guard keeps a file of the same executable; one that is about to end is waited
// for.
bool UpgradeGuard::Lock() {
    constexpr int kTries = 50;
    for (int i = 0; i < kTries && !lock_; ++i) {
        if (i > 0) nanosleep(&kPause, nullptr);
        lock_ = CreateLocked(lockPath_.c_str());
    }
    return static_cast<bool>(lock_);
}

void UpgradeGuard::LetGo() const noexcept {
    unlink(kept_.c_str());
    unlink(lockPath_.c_str());
}

// Gives the old executable a second name, or makes a copy where links are not possible.
bool UpgradeGuard::KeepOld() {
    struct stat ignored {};
    if (lstat(program_.c_str(), &ignored) != 0) return errno == ENOENT;
    unlink(kept_.c_str());
    hadOld_ = stat(program_.c_str(), &old_) == 0;
    return hadOld_ &&
           (linkat(AT_FDCWD, program_.c_str(), AT_FDCWD, kept_.c_str(), 0) == 0 || CopyOld());
}

bool UpgradeGuard::CopyOld() {
    UniqueFd from(open(program_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    UniqueFd to = CreateExclusively(kept_.c_str());
    if (!from || !to || !CopyBytes(from.Get(), to.Get())) return false;
    // Without the right to give files away the copy stays the agent user's own.
    [[maybe_unused]] int given = fchown(to.Get(), old_.st_uid, old_.st_gid);
    return fchmod(to.Get(), old_.st_mode & 07777) == 0 && fsync(to.Get()) == 0;
}

void UpgradeGuard::CopyArguments() {
    if (oldTakesOver_ && reserve_ >= 0) previousEnvironment_.emplace(arguments_.envp, reserve_, -1);
    char** variables = previousEnvironment_ ? previousEnvironment_->Variables() : arguments_.envp;
    auto copy = [this](char** list, std::vector<char*>& copies) {
        for (; *list != nullptr; ++list) copies.push_back(texts_.emplace_back(*list).data());
        copies.push_back(nullptr);
    };
    copy(arguments_.argv, previousArguments_);
    copy(variables, previousVariables_);
}

// ---- From here on code of the guard: a child of a process with threads, so async-signal-safe
// only.

void UpgradeGuard::Run() noexcept {
    Isolate();
    manager_.ClaimService();
    bool served = true;
    if (AwaitNewAgent()) {
        AfterCopy();
        if (OldIsInPlace()) {
            services_.log.WriteFromSignal(*settings_, LogKind::kFailure, kPreviousStarted);
        }
        unlink(kept_.c_str());
    } else {
        EndWhatWasStarted();
        PutBack();
        order_.RemoveFiles();
        if (stopped == 0) served = StartPrevious();
    }
    unlink(lockPath_.c_str());
    _exit(served ? 0 : kExitListen);
}

// Keeps nothing of the agent's but the standard streams and the guard's own descriptors.
void UpgradeGuard::Isolate() noexcept {
    const int own[] = {ear_.Get(), reserve_, lock_.Get(), order_.module.Get(), order_.script.Get()};
    CloseInheritedDescriptors(own);
    for (int i = 1; i < NSIG; ++i) SetHandler(i, SIG_DFL);
    SetHandler(SIGTERM, OnStop);
    SetHandler(SIGINT, OnStop);
    SetHandler(SIGHUP, SIG_IGN);
    SetHandler(SIGPIPE, SIG_IGN);
    SetProcessTitle(arguments_.argv, arguments_.envp, title_.c_str());
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
}

// Returns whether the new agent listens.
bool UpgradeGuard::AwaitNewAgent() noexcept {
    bool pipeEnded = false;
    while (stopped == 0 && MonotonicMs() < deadline_) {
        pollfd ear = {pipeEnded ? -1 : ear_.Get(), POLLIN, 0};
        if (poll(&ear, 1, LookInterval(pipeEnded)) > 0) {
            char word;
            if (read(ear_.Get(), &word, 1) == 1) return true;
            pipeEnded = true;
        }
        if (pipeEnded || !LeadsTo(order_.modulePath.c_str(), order_.module.Get())) AfterCopy();
        if (pipeEnded && !MayStillListen()) {
            if (!next_.HasPidFile()) nextProbe_ = 0;
            return Listens();
        }
        if (copied_ && Listens()) return true;
    }
    return false;
}

int UpgradeGuard::LookInterval(bool pipeEnded) const noexcept {
    if (!copied_ || (!takesOver_ && !pipeEnded)) return kShortIntervalMs;
    return takesOver_ ? kLongIntervalMs : kSearchIntervalMs;
}

// Whether an agent that has closed the pipe, not knowing what it is for, may still come to listen.
bool UpgradeGuard::MayStillListen() const noexcept {
    return !takesOver_ && SignalProcessesWith(environment_->Entry(), 0) > 0;
}

// The new executable is in place: it gets the old one's owner and mode. An agent that takes no
// hand-over could not listen beside the reserve.
void UpgradeGuard::AfterCopy() noexcept {
    if (copied_) return;
    copied_ = true;
    const int64_t delay = next_.HasPidFile() ? kPidFileMs : 0;
    nextProbe_ = MonotonicMs() + (takesOver_ ? kLongIntervalMs : delay);
    if (!takesOver_) DropReserve();
    if (!hadOld_) return;
    [[maybe_unused]] int given =
        fchownat(AT_FDCWD, program_.c_str(), old_.st_uid, old_.st_gid, AT_SYMLINK_NOFOLLOW);
    chmod(program_.c_str(), old_.st_mode & 07777);
}

// Whether the script could not replace the old executable, an immutable one for example, and has
// started it again.
bool UpgradeGuard::OldIsInPlace() const noexcept {
    struct stat now {};
    return hadOld_ && stat(program_.c_str(), &now) == 0 && now.st_dev == old_.st_dev &&
           now.st_ino == old_.st_ino && now.st_size == old_.st_size &&
           now.st_mtim.tv_sec == old_.st_mtim.tv_sec && now.st_mtim.tv_nsec == old_.st_mtim.tv_nsec;
}

void UpgradeGuard::DropReserve() noexcept {
    if (holdsReserve_) close(reserve_);
    holdsReserve_ = false;
}

bool UpgradeGuard::Listens() noexcept {
    if (next_.HoldsPidFile()) return true;
    const int64_t now = MonotonicMs();
    if (now < nextProbe_) return false;
    nextProbe_ = now + (!next_.HasPidFile() && !takesOver_ ? 0 : kLongIntervalMs);
    return next_.Answers();
}

// Ends the script and everything that it started.
void UpgradeGuard::EndWhatWasStarted() const noexcept {
    constexpr int kTries = 100;
    for (int i = 0; i < kTries && SignalProcessesWith(environment_->Entry(), SIGKILL) != 0; ++i) {
        nanosleep(&kPause, nullptr);
    }
}

void UpgradeGuard::PutBack() noexcept {
    if (!hadOld_) return;
    // A rename to another name of the same file does nothing.
    if (SameFile(kept_.c_str(), program_.c_str())) {
        unlink(kept_.c_str());
    } else {
        rename(kept_.c_str(), program_.c_str());
    }
}

// Returns whether it runs.
bool UpgradeGuard::StartPrevious() noexcept {
    if (!oldTakesOver_) {
        DropReserve();
    } else if (!holdsReserve_ && reserve_ >= 0) {
        // Under its old number, which the environment names.
        constexpr int kTries = 100;
        UniqueFd again;
        for (int i = 0; i < kTries && !again && stopped == 0; ++i) {
            again = ReserveAddress(reserveAddress_);
            if (!again) nanosleep(&kPause, nullptr);
        }
        holdsReserve_ = again && dup2(again.Get(), reserve_) == reserve_;
        if (again.Get() == reserve_) again.Release();
    }
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) _exit(1);
    pid_t pid = fork();
    if (pid == 0) {
        SetHandler(SIGTERM, SIG_DFL);
        SetHandler(SIGINT, SIG_DFL);
        SetHandler(SIGHUP, SIG_DFL);
        SetHandler(SIGPIPE, SIG_DFL);
        if (holdsReserve_) LeaveOpen(reserve_);
        ExecuteImage(program_.c_str(), previousArguments_.data(), previousVariables_.data());
        [[maybe_unused]] ssize_t told = write(ends[1], "", 1);
        _exit(1);
    }
    close(ends[1]);
    char failed;
    if (pid < 0 || read(ends[0], &failed, 1) != 0) return false;
    services_.log.WriteFromSignal(*settings_, LogKind::kFailure, kPreviousStarted);
    return AwaitPrevious(pid);
}

// Waits until the agent serves. `starter` detaches it and ends; in interactive mode it is the
// agent.
bool UpgradeGuard::AwaitPrevious(pid_t starter) const noexcept {
    constexpr int kTries = 500;
    bool detached = false;
    for (int i = 0; i < kTries && stopped == 0 && !settings_->interactive; ++i) {
        int status = 0;
        if (!detached && waitpid(starter, &status, WNOHANG) == starter) {
            if (status != 0) return false;
            detached = true;
        }
        if (detached && (!next_.HasPidFile() || next_.HoldsPidFile())) break;
        nanosleep(&kPause, nullptr);
    }
    return true;
}

}  // namespace zot
