#include "exporter/worker.h"

#include <utility>

namespace zot::exporter {

Worker::~Worker() {
    {
        std::lock_guard lock(workMutex_);
        stop_ = true;
    }
    changed_.notify_one();
    thread_.join();
}

void Worker::Do(std::function<void()> work) {
    {
        std::lock_guard lock(workMutex_);
        work_.push_back(std::move(work));
    }
    changed_.notify_one();
}

void Worker::Run() {
    std::unique_lock lock(workMutex_);
    for (;;) {
        changed_.wait(lock, [this] { return stop_ || !work_.empty(); });
        if (work_.empty()) return;
        std::function<void()> work = std::move(work_.front());
        work_.pop_front();
        lock.unlock();
        work();
        work = nullptr;  // what it holds goes before the lock comes
        lock.lock();
    }
}

}  // namespace zot::exporter
