// Counts the lines of logs that have a pattern, over the life of many probes and restarts.
//
// The position in each log, and the count so far, are in a file of the state folder: whoever
// scrapes, and however many do, sees the same counter. Probes of the same host and log take turns;
// a count is written to disk before anybody sees it.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <string>

#include "client/deadline.h"
#include "client/engine.h"
#include "exporter/worker.h"

namespace zot::exporter {

struct LogQuestion {
    std::string stateFolder;
    std::string host;  // its name in the inventory
    client::Target target;
    std::string path;
    std::string pattern;
    client::Deadline::Clock::time_point deadline;
};

struct LogCount {
    client::Failure failure = client::Failure::kNone;
    std::string message;
    int64_t matches = 0;  // since the first probe; what a deadline cuts off is counted next time
};

using LogHandler = std::function<void(LogCount count)>;

// All of it is called, and calls, on the engine's thread; only files are written elsewhere.
class LogCounter {
  public:
    // REQUIRES that both outlive this, and end before it goes.
    LogCounter(client::Engine& engine, Worker& files) : engine_(engine), files_(files) {}

    // Calls the handler exactly once.
    void Count(LogQuestion question, LogHandler handler);

  private:
    struct Job;
    using JobPtr = std::shared_ptr<Job>;

    void Begin(const JobPtr& job);
    void AskNext(const JobPtr& job);
    void Take(const JobPtr& job, client::Outcome outcome);
    void Save(const JobPtr& job);
    void Finish(const JobPtr& job);

    client::Engine& engine_;
    Worker& files_;
    // Of each log that is counted now: who waits for it.
    std::map<std::string, std::list<JobPtr>> waiting_;
};

}  // namespace zot::exporter
