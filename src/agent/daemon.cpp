#include "agent/daemon.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <utility>

#include "agent/service_manager.h"
#include "base/held_lock.h"
#include "base/platform/child.h"
#include "base/vystring.h"

namespace zot {
namespace {

// Longer than a child needs to try three times to open its port.
constexpr int kDetachPatienceMs = 20000;

// Lets the calling process go on in a child that has no parent but the first process of the system,
// and so the service manager.
void LeaveParent() {
    constexpr timespec kPause = {0, 1000L * 1000};
    const pid_t parent = getpid();
    if (fork() > 0) _exit(0);
    while (getpid() != parent && getppid() == parent) nanosleep(&kPause, nullptr);
}

}  // namespace

void OpenStandardDescriptors() {
    // Not close-on-exec: a restarted agent must find them open too.
    int descriptor = open("/dev/null", O_RDWR);
    while (descriptor >= 0 && descriptor <= STDERR_FILENO) descriptor = open("/dev/null", O_RDWR);
    if (descriptor >= 0) close(descriptor);
}

bool Daemonize(UniqueFd& parent) {
    // Otherwise parent and child would both write what is still buffered.
    std::fflush(nullptr);
    // Without a pipe the parent does not wait.
    int ends[2];
    UniqueFd childListens;
    if (pipe2(ends, O_CLOEXEC) == 0) {
        childListens.Reset(ends[0]);
        parent.Reset(ends[1]);
    }
    pid_t child = fork();
    if (child < 0) return false;
    if (child > 0) {
        parent.Reset();
        pollfd end = {childListens.Get(), POLLIN, 0};
        poll(&end, childListens ? 1 : 0, childListens ? kDetachPatienceMs : 0);
        std::puts("Daemon started");
        std::exit(0);
    }
    setsid();
    if (ServiceManager().IsThere()) LeaveParent();
    // A descriptor that cannot be reopened stays closed; nothing reads or prints any more.
    if (std::freopen("/dev/null", "r", stdin) == nullptr) std::fclose(stdin);
    if (std::freopen("/dev/null", "w", stdout) == nullptr) std::fclose(stdout);
    if (std::freopen("/dev/null", "w", stderr) == nullptr) std::fclose(stderr);
    return true;
}

void CloseInheritedDescriptors(std::span<const int> kept) noexcept {
    int next = STDERR_FILENO + 1;
    for (int last = *std::max_element(kept.begin(), kept.end()); next <= last; ++next) {
        if (std::find(kept.begin(), kept.end(), next) == kept.end()) close(next);
    }
    if (CloseDescriptorsFrom(next)) return;
    for (const long limit = sysconf(_SC_OPEN_MAX); next < limit; ++next) close(next);
}

void PidFile::Write(const AgentSettings& settings, Log& log) {
    if (settings.interactive || settings.pidFile.Empty()) return;
    settings.pidFile.CopyToBuffer(path_, sizeof path_);
    // The file is emptied only once it is locked, because it may belong to another running agent.
    // It must not be a link to somebody's file or a device either.
    UniqueFd file(
        open(path_, O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0644));
    struct stat status {};
    bool usable =
        file && fstat(file.Get(), &status) == 0 && S_ISREG(status.st_mode) && status.st_nlink == 1;
    if (!usable) {
        log.WriteLog(LogKind::kFailure, 0, "Failed to create pid file %s\n", path_);
        return;
    }
    char text[16];
    int length = std::snprintf(text, sizeof text, "%d\n", static_cast<int>(getpid()));
    if (!HoldLock(file.Get())) {
        log.WriteLog(LogKind::kFailure, 0, "Failed to lock pid file %s\n", path_);
        return;
    }
    if (ftruncate(file.Get(), 0) != 0 || write(file.Get(), text, static_cast<size_t>(length)) < 0) {
        ForgetLock();
        log.WriteLog(LogKind::kFailure, 0, "Failed to create pid file %s\n", path_);
        return;
    }
    file_ = std::move(file);
}

void PidFile::Remove() noexcept {
    if (!file_) return;
    ForgetLock();
    file_.Reset();
    unlink(path_);
}

}  // namespace zot
