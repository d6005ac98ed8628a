#include "base/children.h"

#include <sys/wait.h>

#include <mutex>
#include <vector>

namespace zot {
namespace {

// Children that nobody waits for. Only these are reaped by the main loop: a wait for any child
// would take the status away from a session that waits for its own.
class LeftRunning {
  public:
    void Add(pid_t pid) {
        std::lock_guard<std::mutex> lock(mutex_);
        children_.push_back(pid);
    }
    void Reap() {
        std::lock_guard<std::mutex> lock(mutex_);
        std::erase_if(children_, [](pid_t pid) { return waitpid(pid, nullptr, WNOHANG) != 0; });
    }

  private:
    std::mutex mutex_;
    std::vector<pid_t> children_;
};

// Never destroyed: sessions leave children while the process ends.
LeftRunning& leftRunning = *new LeftRunning;

}  // namespace

void LeaveRunning(pid_t pid) { leftRunning.Add(pid); }

void ReapFinishedChildren() { leftRunning.Reap(); }

}  // namespace zot
