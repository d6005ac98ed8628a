// What requests have under way that must not outlive the agent: children that are waited for, and
// temporary files. Whatever is made is known here from its first moment, so that the end of the
// agent misses none.
#pragma once

#include <sys/types.h>

#include <string_view>

namespace zot {

// Stands around the making of a child or a file and its registration. While the agent ends,
// nothing new is made: the constructor blocks its thread until the end, or until the agent goes on.
class Making {
  public:
    Making();
    ~Making();
    Making(const Making&) = delete;
    Making& operator=(const Making&) = delete;
};

// A child on its way from its start to its end.
class WatchedChild {
  public:
    enum class Fate { kEndsWithAgent, kGoesOn };

    // REQUIRES: a Making stands on this thread, and `pid` is a child that nobody else reaps. One
    // that ends with the agent leads a process group, which goes with it.
    WatchedChild(pid_t pid, Fate fate);
    // Where the child ends with the agent this blocks like Making: a request is not to answer for
    // a child that was taken from it.
    ~WatchedChild();
    WatchedChild(const WatchedChild&) = delete;
    WatchedChild& operator=(const WatchedChild&) = delete;

    // Takes the status of a child that has ended. Returns whether it is gone; SIGKILL stands for a
    // status that was lost. Does not wait.
    bool Reap(int& status);

  private:
    const pid_t pid_;
    const Fate fate_;
};

// Reaps a child that has ended, unless it is one that somebody watches or that is being made. False
// when it is left alone.
bool ReapUnlessWatched(pid_t pid);

// A file that goes with the agent.
// REQUIRES: a Making stands on this thread.
void RememberFile(std::string_view path);
void ForgetFile(std::string_view path) noexcept;

// Kills the children, removes the files and lets nothing new come up. Waits a moment for the
// threads that are in the middle of something, so that they clear up what they know of.
void EndLooseEnds();
// The agent goes on after all.
void AllowLooseEnds();

}  // namespace zot
