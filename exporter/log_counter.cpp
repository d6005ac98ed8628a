#include "exporter/log_counter.h"

#include <algorithm>
#include <ctime>
#include <utility>

#include "client/invocation.h"
#include "client/log_scan.h"
#include "client/log_state.h"
#include "client/replies.h"

namespace zot::exporter {

using client::Deadline;
using client::Failure;
using Clock = Deadline::Clock;

// No question begins when less than this is left: its reply would come too late.
constexpr std::chrono::milliseconds kForOneReply{250};

struct LogCounter::Job {
    LogQuestion question;
    LogHandler handler;
    std::string identity;
    client::LogState state;
    client::ScanPosition position;
    bool changed = false;  // against the file
    LogCount count;
};

void LogCounter::Count(LogQuestion question, LogHandler handler) {
    auto job = std::make_shared<Job>();
    job->question = std::move(question);
    job->handler = std::move(handler);
    const LogQuestion& asked = job->question;
    job->identity = asked.host + "\n" + std::to_string(asked.target.port) + "\n" + asked.path +
                    "\n" + asked.pattern;
    auto [turn, isFree] = waiting_.try_emplace(job->identity);
    if (isFree) return Begin(job);
    turn->second.push_back(job);
    auto left = std::chrono::ceil<std::chrono::milliseconds>(asked.deadline - Clock::now());
    engine_.After(std::max(left, std::chrono::milliseconds(0)), [this, job] {
        auto queue = waiting_.find(job->identity);
        if (queue == waiting_.end() || std::erase(queue->second, job) == 0) return;
        job->handler({Failure::kTimeout, "another probe still counted this log", 0});
    });
}

void LogCounter::Begin(const JobPtr& job) {
    const std::string folder = job->question.stateFolder + "/";
    // Another process that holds the file is not waited for: this thread serves all.
    if (!job->state.Open(folder, job->identity, {}, Deadline(Clock::now()), job->count.message)) {
        job->count.failure = Failure::kLocal;
        return Finish(job);
    }
    job->position = job->state.Position();
    job->count.matches = job->state.Alarm().matches;
    AskNext(job);
}

void LogCounter::AskNext(const JobPtr& job) {
    const LogQuestion& asked = job->question;
    engine_.Add({.target = asked.target,
                 .text = client::ComposeRequest(
                     "TEST-TextLog", client::ScanParams(asked.path, asked.pattern, job->position,
                                                        client::Find::kNext)),
                 .deadline = asked.deadline},
                [this, job](client::Outcome outcome) { Take(job, std::move(outcome)); });
}

void LogCounter::Take(const JobPtr& job, client::Outcome outcome) {
    client::Scan scan;
    const client::ScanPosition before = job->position;
    job->count.failure = outcome.failure;
    if (outcome.failure == Failure::kAgentCode) {
        job->count.message = client::Complaint("TEST-TextLog", outcome.answer);
    } else if (outcome.failure != Failure::kNone) {
        job->count.message = std::move(outcome.message);
    } else if (!client::TakeScan(outcome.answer, scan, job->position)) {
        job->count.failure = Failure::kBadReply;
        job->count.message = "the agent's reply is too short";
    } else {
        job->changed = job->changed || scan.found || !(before == job->position);
        if (scan.found) ++job->count.matches;
        bool timeLeft = Clock::now() + kForOneReply < job->question.deadline;
        if (scan.found && scan.more && timeLeft) return AskNext(job);
    }
    // What was counted before a failure stays counted.
    if (job->changed) return Save(job);
    Finish(job);
}

void LogCounter::Save(const JobPtr& job) {
    files_.Do([this, job] {
        std::string error;
        if (!job->state.Save(job->position, error, {time(nullptr), job->count.matches, "-"})) {
            job->count = {Failure::kLocal, error, 0};
        }
        engine_.Post([this, job] { Finish(job); });
    });
}

void LogCounter::Finish(const JobPtr& job) {
    job->state = {};  // the next one locks the file
    auto queue = waiting_.find(job->identity);
    if (queue->second.empty()) {
        waiting_.erase(queue);
    } else {
        JobPtr next = std::move(queue->second.front());
        queue->second.pop_front();
        Begin(next);
    }
    job->handler(std::move(job->count));
}

}  // namespace zot::exporter
