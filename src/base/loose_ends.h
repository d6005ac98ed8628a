// What requests have under way and must not outlive the agent: children they wait for, and
// temporary files. Each is registered here from its first moment, so that the end of the agent
// misses none.
#pragma once

#include <sys/types.h>

#include <string_view>

namespace zot {

// Held while a child or a file is created and registered, and while anything else goes on that must
// be done whole or not at all. While the agent is ending nothing new is created: the constructor
// blocks its thread until the process is gone, or until the agent goes on.
class Making {
  public:
    Making();
    ~Making();
    Making(const Making&) = delete;
    Making& operator=(const Making&) = delete;
};

// A child, from its start to its end.
class WatchedChild {
  public:
    enum class Fate { kEndsWithAgent, kGoesOn };

    // REQUIRES: this thread holds a Making, and nobody else reaps `pid`. A child that ends with the
    // agent leads a process group, which is killed with it.
    WatchedChild(pid_t pid, Fate fate);
    // For a child that ends with the agent this blocks like Making: a request must not answer for a
    // child that was taken from it.
    ~WatchedChild();
    WatchedChild(const WatchedChild&) = delete;
    WatchedChild& operator=(const WatchedChild&) = delete;

    // Takes the status of a child that has ended. Returns whether it is gone; a lost status reads
    // as SIGKILL. Does not wait.
    bool Reap(int& status);

  private:
    const pid_t pid_;
    const Fate fate_;
};

// Reaps a child that has ended, unless somebody watches it or it is just being created. False when
// it is left alone.
bool ReapUnlessWatched(pid_t pid);

// A file that is removed with the agent.
// REQUIRES: this thread holds a Making.
void RememberFile(std::string_view path);
void ForgetFile(std::string_view path) noexcept;

// Lets nothing new be created, and waits a moment until what is just being created is complete.
void HoldLooseEnds();
// Likewise, and kills the children and removes the files. Waits a moment for threads in the middle
// of something, so that they can clean up after themselves.
void EndLooseEnds();
// Allows new ones again: the agent goes on after all.
void AllowLooseEnds();

}  // namespace zot
