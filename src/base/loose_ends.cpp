#include "base/loose_ends.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <initializer_list>
#include <mutex>
#include <string>
#include <vector>

namespace zot {
namespace {

// How long the end of the agent waits for threads that are creating something or cleaning up.
constexpr std::chrono::seconds kPatience{1};

std::mutex looseEndsMutex;

struct LooseEnds {
    std::condition_variable changed;
    bool ending = false;
    int making = 0;
    std::vector<pid_t> children;  // not reaped yet
    std::vector<pid_t> detached;  // the same, of those that go on
    int watched = 0;              // requests waiting for one of them
    std::vector<std::string> files;
};

// Never destroyed: sessions still use it while the process ends.
LooseEnds& ends = *new LooseEnds;

using Lock = std::unique_lock<std::mutex>;

void AwaitPermission(Lock& lock) {
    ends.changed.wait(lock, [] { return !ends.ending; });
}

}  // namespace

Making::Making() {
    Lock lock(looseEndsMutex);
    AwaitPermission(lock);
    ++ends.making;
}

Making::~Making() {
    Lock lock(looseEndsMutex);
    --ends.making;
    ends.changed.notify_all();
}

WatchedChild::WatchedChild(pid_t pid, Fate fate) : pid_(pid), fate_(fate) {
    Lock lock(looseEndsMutex);
    if (fate_ == Fate::kGoesOn) {
        ends.detached.push_back(pid_);
        return;
    }
    ends.children.push_back(pid_);
    ++ends.watched;
}

WatchedChild::~WatchedChild() {
    Lock lock(looseEndsMutex);
    if (fate_ == Fate::kGoesOn) {
        std::erase(ends.detached, pid_);
        return;
    }
    std::erase(ends.children, pid_);
    --ends.watched;
    ends.changed.notify_all();
    AwaitPermission(lock);
}

bool WatchedChild::Reap(int& status) {
    // Under the mutex: once a child is reaped its number may belong to another process, which the
    // end of the agent must not kill.
    Lock lock(looseEndsMutex);
    pid_t result;
    do {
        result = waitpid(pid_, &status, WNOHANG);
    } while (result < 0 && errno == EINTR);
    if (result == 0) return false;
    if (result < 0) status = SIGKILL;
    std::erase(ends.children, pid_);
    std::erase(ends.detached, pid_);
    return true;
}

bool ReapUnlessWatched(pid_t pid) {
    // Under the mutex, so that no new child can get this one's number.
    Lock lock(looseEndsMutex);
    for (const std::vector<pid_t>* known : {&ends.children, &ends.detached}) {
        if (std::find(known->begin(), known->end(), pid) != known->end()) return false;
    }
    return ends.making == 0 && waitpid(pid, nullptr, WNOHANG) == pid;
}

void RememberFile(std::string_view path) {
    Lock lock(looseEndsMutex);
    ends.files.emplace_back(path);
}

void ForgetFile(std::string_view path) noexcept {
    Lock lock(looseEndsMutex);
    auto found = std::find(ends.files.begin(), ends.files.end(), path);
    if (found != ends.files.end()) ends.files.erase(found);
}

void HoldLooseEnds() {
    Lock lock(looseEndsMutex);
    ends.ending = true;
    ends.changed.wait_for(lock, kPatience, [] { return ends.making == 0; });
}

void EndLooseEnds() {
    HoldLooseEnds();
    Lock lock(looseEndsMutex);
    for (pid_t child : ends.children) {
        kill(child, SIGKILL);
        kill(-child, SIGKILL);
    }
    ends.changed.wait_for(lock, kPatience, [] { return ends.watched == 0; });
    for (const std::string& file : ends.files) unlink(file.c_str());
}

void AllowLooseEnds() {
    Lock lock(looseEndsMutex);
    ends.ending = false;
    ends.changed.notify_all();
}

}  // namespace zot
