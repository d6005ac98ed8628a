#include "base/children.h"

#include <signal.h>
#include <sys/wait.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <vector>

#include "base/loose_ends.h"
#include "base/platform/child.h"

namespace zot {
namespace {

// Children that nobody waits for. The main loop reaps only these of its own children: waiting for
// any child would take the status away from a session that waits for its own.
class LeftRunning {
  public:
    void Add(pid_t pid) {
        std::lock_guard<std::mutex> lock(mutex_);
        children_.push_back(pid);
    }
    bool Has(pid_t pid) {
        std::lock_guard<std::mutex> lock(mutex_);
        return std::find(children_.begin(), children_.end(), pid) != children_.end();
    }
    void Reap() {
        std::lock_guard<std::mutex> lock(mutex_);
        std::erase_if(children_, [](pid_t pid) { return waitpid(pid, nullptr, WNOHANG) != 0; });
    }

  private:
    std::mutex mutex_;
    std::vector<pid_t> children_;
};

// Never destroyed: sessions still leave children here while the process ends.
LeftRunning& leftRunning = *new LeftRunning;

std::atomic<bool> foreignExpected{false};

// Looks at a child that has ended without taking its status; 0 when none has, -1 when there are no
// children.
pid_t PeekAtFinished() {
    siginfo_t info{};
    if (waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) != 0) return -1;
    return info.si_pid;
}

// Stops at a child that is not foreign: the session that waits for it takes it away before the next
// look.
void ReapForeignChildren() {
    for (pid_t pid; (pid = PeekAtFinished()) > 0;) {
        if (leftRunning.Has(pid) || !ReapUnlessWatched(pid)) return;
    }
}

}  // namespace

void LeaveRunning(pid_t pid) { leftRunning.Add(pid); }

void ExpectForeignChildren() { foreignExpected = AdoptsOrphans() || PeekAtFinished() >= 0; }

void ReapFinishedChildren() {
    leftRunning.Reap();
    if (foreignExpected) ReapForeignChildren();
}

}  // namespace zot
