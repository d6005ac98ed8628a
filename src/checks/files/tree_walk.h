// Walks through a tree of folders and sums what its walker finds in each.
//
// The current levels of a walk are on the heap, so depth costs a descriptor per level but no stack.
// Two threads walk a large tree, because the system spends nearly all the time on one entry after
// another: each thread goes down its own branch, and a short queue holds folders for the other.
#pragma once

#include <pthread.h>

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <new>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include "base/peer_watch.h"
#include "base/thread.h"
#include "checks/files/directory.h"

namespace zot {

// A Walker says what a folder adds. It is used by both threads at once, and has
//     struct Level { Directory directory; ... };            an open folder and what was found there
//     bool Visit(Level&, DirectoryEntry&) const;            true for a folder to enter
//     bool Enter(Level&, const char* name, Level& child) const;   false when it cannot
//     uint64_t Result(const Level&) const;                  what the folder itself adds at its end
template <typename Walker>
class TreeWalk {
  public:
    using Level = typename Walker::Level;

    explicit TreeWalk(const Walker& walker) : walker_(walker) {}
    TreeWalk(const TreeWalk&) = delete;
    TreeWalk& operator=(const TreeWalk&) = delete;

    // Walks the open folder and everything entered from it; call once. Returns nothing when the sum
    // could not be found out: short of descriptors or memory, or a folder that cannot be read
    // although the agent may.
    std::optional<uint64_t> Run(Level top) {
        waiting_.reserve(kWaiting);
        waiting_.push_back(std::move(top));
        uint64_t sum = Work(true);
        if (workers_ > 1) pthread_join(helper_, nullptr);
        if (failed_) return std::nullopt;
        return sum + helperSum_;
    }

  private:
    // After this many entries a tree is large enough to be worth a thread.
    static constexpr size_t kLarge = 4096;
    // How many folders may wait for a thread; each holds a descriptor.
    static constexpr size_t kWaiting = 4;

    uint64_t Work(bool mayCallHelp) {
        uint64_t sum = 0;
        for (Level top; Take(top);) {
            try {
                Descend(std::move(top), mayCallHelp, sum);
            } catch (const std::bad_alloc&) {
                failed_ = true;
            }
        }
        return sum;
    }

    void Descend(Level top, bool mayCallHelp, uint64_t& sum) {
        std::vector<Level> levels;
        levels.push_back(std::move(top));
        DirectoryEntry entry;
        while (!levels.empty() && !failed_) {
            Level& level = levels.back();
            if (!level.directory.Next(entry)) {
                if (level.directory.IsIncomplete()) failed_ = true;
                sum += walker_.Result(level);
                levels.pop_back();
                continue;
            }
            if (mayCallHelp && ++visited_ == kLarge) CallHelp();
            Level child;
            if (!walker_.Visit(level, entry)) continue;
            if (!walker_.Enter(level, entry.name, child)) {
                if (child.directory.IsIncomplete()) failed_ = true;
                continue;
            }
            if (!Give(child)) levels.push_back(std::move(child));
        }
    }

    // Leaves a folder to the next free thread; false when it is better walked at once.
    bool Give(Level& level) {
        std::lock_guard lock(mutex_);
        if (workers_ == 1 || waiting_.size() == kWaiting) return false;
        waiting_.push_back(std::move(level));
        changed_.notify_one();
        return true;
    }

    // Waits for a folder; false when there will be none, because no thread is working any more.
    bool Take(Level& level) {
        std::unique_lock lock(mutex_);
        ++idle_;
        changed_.wait(lock, [this] { return !waiting_.empty() || idle_ == workers_; });
        if (waiting_.empty()) {
            changed_.notify_all();
            return false;
        }
        --idle_;
        level = std::move(waiting_.front());
        waiting_.erase(waiting_.begin());
        return true;
    }

    // With a single processor, or when there is no thread to be had, one thread walks alone.
    void CallHelp() {
        if (std::thread::hardware_concurrency() < 2) return;
        std::lock_guard lock(mutex_);
        auto help = [](void* argument) -> void* {
            auto* walk = static_cast<TreeWalk*>(argument);
            WorkFor samePeer(walk->peer_);
            walk->helperSum_ = walk->Work(false);
            return nullptr;
        };
        if (StartThread(helper_, help, this) == 0) ++workers_;
    }

    const Walker& walker_;
    std::atomic<bool> failed_{false};
    PeerWatch* const peer_ = WorkFor::Current();
    size_t visited_ = 0;  // by the thread that may call for help
    pthread_t helper_{};
    uint64_t helperSum_ = 0;

    std::mutex mutex_;  // guards what follows
    std::condition_variable changed_;
    std::vector<Level> waiting_;
    int workers_ = 1;
    int idle_ = 0;
};

}  // namespace zot
