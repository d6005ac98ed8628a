#include "exporter/probe_run.h"

#include <algorithm>
#include <cstddef>
#include <ctime>
#include <string>
#include <string_view>
#include <utility>

#include "client/inventory.h"
#include "client/probe.h"
#include "client/replies.h"

namespace zot::exporter {
namespace {

using client::Failure;
using client::Outcome;
using client::Record;
using std::chrono::milliseconds;
using Clock = client::Deadline::Clock;

// Of one reply; a list of processes is the longest.
constexpr size_t kMaxReply = size_t{4} << 20;

constexpr MetricFamily kSuccess = {"probe_success", "gauge", "1 when every check succeeded."};
constexpr MetricFamily kDuration = {"probe_duration_seconds", "gauge", "How long the probe took."};
constexpr MetricFamily kFailureInfo = {"probe_failure_info", "gauge",
                                       "Why the first check that failed did."};
constexpr MetricFamily kCheckSuccess = {"zot_check_success", "gauge",
                                        "1 when the check got its answer."};
constexpr MetricFamily kCheckDuration = {"zot_check_duration_seconds", "gauge",
                                         "How long the check took."};
constexpr MetricFamily kCheckFailure = {"zot_check_failure_info", "gauge", "Why the check failed."};

double SecondsSince(Clock::time_point begin) {
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

class ProbeRun : public std::enable_shared_from_this<ProbeRun> {
  public:
    ProbeRun(client::Engine& engine, LogCounter& logs, ProbePlan plan, ProbeHandler handler)
        : engine_(engine), logs_(logs), plan_(std::move(plan)), handler_(std::move(handler)) {}
    void Start();

  private:
    // A check under way.
    struct Step {
        const Check* check = nullptr;
        Clock::time_point deadline;
        std::unique_ptr<client::Probe> probe;
        CheckReport report;
        Record record;  // empty when it failed
    };

    void StartStep(size_t index);
    void StartLog(size_t index);
    // Asks the next question; ends the check when there is none.
    void AskNext(size_t index);
    void Take(size_t index, Outcome outcome);
    void ReadAnswer(Step& step);
    void End(size_t index, Failure failure, std::string message);
    void Finish();
    std::string Metrics(const ProbeReport& report) const;

    client::Engine& engine_;
    LogCounter& logs_;
    ProbePlan plan_;
    ProbeHandler handler_;
    Clock::time_point begin_ = Clock::now();
    time_t begun_ = time(nullptr);
    client::Target target_;
    std::vector<Step> steps_;
    size_t running_ = 0;
};

void ProbeRun::Start() {
    const client::Host& host = *plan_.host;
    target_.host = host.address;
    target_.port = host.port;
    target_.timeout = std::chrono::hours(24);  // each request has a deadline
    std::string error;
    bool forOthers = false;
    bool good = host.passwordFile.empty() ||
                client::ReadPasswordFile(host.passwordFile, target_.password, forOthers, error);
    steps_.resize(plan_.checks.size());
    running_ = steps_.size();
    for (size_t i = 0; i < steps_.size(); ++i) {
        const PlannedCheck& planned = plan_.checks[i];
        steps_[i].check = planned.check;
        steps_[i].deadline = std::min(plan_.deadline, begin_ + planned.timeout);
        steps_[i].report.name = planned.check->name;
    }
    for (size_t i = 0; i < plan_.checks.size(); ++i) {
        if (good) {
            StartStep(i);
        } else {
            End(i, Failure::kLocal, error);
        }
    }
}

void ProbeRun::StartStep(size_t index) {
    Step& step = steps_[index];
    if (CountsLog(*step.check)) return StartLog(index);
    auto left = std::chrono::duration_cast<milliseconds>(step.deadline - Clock::now());
    step.probe = step.check->type->ask(*step.check, std::max(left, milliseconds(1)));
    AskNext(index);
}

void ProbeRun::StartLog(size_t index) {
    const Step& step = steps_[index];
    LogQuestion question = {
        plan_.fleet->config.state,       plan_.host->name, target_, step.check->values[kLogPath],
        step.check->values[kLogPattern], step.deadline};
    logs_.Count(std::move(question), [self = shared_from_this(), index](LogCount count) {
        self->steps_[index].record.push_back({std::string(kMatchesField), count.matches});
        self->End(index, count.failure, std::move(count.message));
    });
}

void ProbeRun::AskNext(size_t index) {
    Step& step = steps_[index];
    auto question = step.probe->Next();
    if (!question) {
        ReadAnswer(step);
        return End(index, step.report.failure, step.report.message);
    }
    engine_.Add({.target = target_,
                 .text = client::ComposeRequest(question->command, question->params),
                 .deadline = step.deadline,
                 .maxReply = kMaxReply},
                [self = shared_from_this(), index](Outcome outcome) {
                    self->Take(index, std::move(outcome));
                });
}

void ProbeRun::Take(size_t index, Outcome outcome) {
    bool replied = outcome.failure == Failure::kNone || outcome.failure == Failure::kAgentCode;
    if (!replied) return End(index, outcome.failure, std::move(outcome.message));
    steps_[index].probe->Take(outcome.answer);
    AskNext(index);
}

void ProbeRun::ReadAnswer(Step& step) {
    const client::Answer& answer = step.probe->answer;
    std::vector<Record> records;
    step.report.failure = Failure::kNone;
    if (answer.code != "200") {
        step.report.failure = Failure::kAgentCode;
        step.report.message = client::Complaint(step.check->type->command, answer);
    } else if (!client::ReadReply(step.check->type->command, {}, answer, records,
                                  step.report.message) ||
               records.empty()) {
        step.report.failure = Failure::kBadReply;
    } else {
        step.record = std::move(records[0]);
    }
}

void ProbeRun::End(size_t index, Failure failure, std::string message) {
    Step& step = steps_[index];
    step.report.failure = failure;
    step.report.message = std::move(message);
    step.report.seconds = SecondsSince(begin_);
    if (failure != Failure::kNone) step.record.clear();
    if (--running_ == 0) Finish();
}

void ProbeRun::Finish() {
    ProbeReport report;
    report.host = plan_.host->name;
    report.begun = begun_;
    report.seconds = SecondsSince(begin_);
    for (const Step& step : steps_) {
        if (report.failure == Failure::kNone) report.failure = step.report.failure;
        report.checks.push_back(step.report);
        if (!IsOfTheAgent(*step.check)) continue;
        report.version = client::Text(step.record, "agent_version");
        report.system = client::Text(step.record, "system");
    }
    report.metrics = Metrics(report);
    handler_(std::move(report));
}

std::string ProbeRun::Metrics(const ProbeReport& report) const {
    MetricText metrics;
    metrics.Add(kSuccess, report.failure == Failure::kNone ? 1 : 0);
    metrics.Add(kDuration, report.seconds);
    if (report.failure != Failure::kNone) {
        const Label reason[] = {{"reason", client::FailureWord(report.failure)}};
        metrics.Add(kFailureInfo, reason, 1);
    }
    for (const CheckReport& check : report.checks) {
        const bool good = check.failure == Failure::kNone;
        const Label labels[] = {{"check", check.name},
                                {"reason", client::FailureWord(check.failure)}};
        metrics.Add(kCheckSuccess, std::span(labels).first(1), good ? 1 : 0);
        metrics.Add(kCheckDuration, std::span(labels).first(1), check.seconds);
        if (!good) metrics.Add(kCheckFailure, labels, 1);
    }
    for (const Step& step : steps_) {
        if (step.report.failure == Failure::kNone) {
            step.check->type->report(*step.check, step.record, metrics);
        }
    }
    return metrics.Text();
}

}  // namespace

void StartProbe(client::Engine& engine, LogCounter& logs, ProbePlan plan, ProbeHandler handler) {
    std::make_shared<ProbeRun>(engine, logs, std::move(plan), std::move(handler))->Start();
}

}  // namespace zot::exporter
