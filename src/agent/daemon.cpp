#include "agent/daemon.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>

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

int RaiseDescriptorLimit() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return 0;
    if (limit.rlim_cur != limit.rlim_max) {
        rlimit raised = {limit.rlim_max, limit.rlim_max};
        if (setrlimit(RLIMIT_NOFILE, &raised) == 0) limit = raised;
    }
    return static_cast<int>(std::min<rlim_t>(limit.rlim_cur, INT_MAX));
}

void PidFile::Write(const AgentSettings& settings, Log& log) {
    settings.pidFile.CopyToBuffer(path_, sizeof path_);
    // Emptied only once it is locked: the file may belong to another agent that is running.
    UniqueFd file(open(path_, O_RDWR | O_CREAT | O_CLOEXEC, 0644));
    if (!file) {
        log.WriteLog(LogKind::kFailure, 0, "Failed to create pid file %s\n", path_);
        return;
    }
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    char text[16];
    int length = std::snprintf(text, sizeof text, "%d\n", static_cast<int>(getpid()));
    if (fcntl(file.Get(), F_SETLK, &lock) != 0) {
        log.WriteLog(LogKind::kFailure, 0, "Failed to lock pid file %s\n", path_);
        return;
    }
    if (ftruncate(file.Get(), 0) != 0 || write(file.Get(), text, static_cast<size_t>(length)) < 0) {
        log.WriteLog(LogKind::kFailure, 0, "Failed to create pid file %s\n", path_);
        return;
    }
    file_ = std::move(file);
}

void PidFile::Remove() noexcept {
    if (!file_) return;
    file_.Reset();
    unlink(path_);
}

}  // namespace zot
