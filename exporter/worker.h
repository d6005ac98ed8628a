// A thread of its own for work that would hold up others: slow passwords, files.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace zot::exporter {

class Worker {
  public:
    Worker() : thread_([this] { Run(); }) {}
    // Does what is left, and ends.
    ~Worker();
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    // One after the other, in the order given. May be called from any thread.
    void Do(std::function<void()> work);

  private:
    void Run();

    std::mutex workMutex_;
    std::condition_variable changed_;
    std::deque<std::function<void()>> work_;
    bool stop_ = false;
    std::thread thread_;  // the last: it uses the others
};

}  // namespace zot::exporter
