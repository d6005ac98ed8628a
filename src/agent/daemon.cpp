#include "agent/daemon.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <utility>

#include "base/held_lock.h"
#include "base/platform_child.h"
#include "base/vystring.h"

namespace zot {

void OpenStandardDescriptors() {
    // Not close-on-exec: a restarted agent is to find them as this one does.
    int descriptor = open("/dev/null", O_RDWR);
    while (descriptor >= 0 && descriptor <= STDERR_FILENO) descriptor = open("/dev/null", O_RDWR);
    if (descriptor >= 0) close(descriptor);
}

bool Daemonize() {
    // What is still buffered would otherwise be written by parent and child.
    std::fflush(nullptr);
    pid_t child = fork();
    if (child < 0) return false;
    if (child > 0) {
        std::puts("Daemon started");
        std::exit(0);
    }
    setsid();
    // A descriptor that cannot be reopened stays closed; nothing reads or prints any more.
    if (std::freopen("/dev/null", "r", stdin) == nullptr) std::fclose(stdin);
    if (std::freopen("/dev/null", "w", stdout) == nullptr) std::fclose(stdout);
    if (std::freopen("/dev/null", "w", stderr) == nullptr) std::fclose(stderr);
    return true;
}

void CloseInheritedDescriptors() {
    constexpr int kFirst = STDERR_FILENO + 1;
    if (CloseDescriptorsFrom(kFirst)) return;
    const long limit = sysconf(_SC_OPEN_MAX);
    for (int descriptor = kFirst; descriptor < limit; ++descriptor) close(descriptor);
}

void PidFile::Write(const AgentSettings& settings, Log& log) {
    settings.pidFile.CopyToBuffer(path_, sizeof path_);
    // Emptied only once it is locked: the file may belong to another agent that is running. Nor may
    // it lead to somebody's file by a link, or be a device.
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
