#include "client/host_run.h"

#include <algorithm>
#include <ostream>

#include "base/descriptor_limit.h"
#include "client/progress_line.h"
#include "client/text.h"

namespace zot::client {
namespace {

// For a question that people ask; enough for 80,000 processes of 100 bytes a line.
constexpr size_t kMaxAnswer = size_t{8} << 20;

// For hosts that all hang: those at once give their places to the next after half a second.
std::chrono::milliseconds Longest(const Options& options, size_t hosts) {
    constexpr std::chrono::milliseconds kPlace{500};
    return options.target.timeout + kPlace * (std::max<size_t>(hosts, 1) - 1) / options.atOnce;
}

class Runner {
  public:
    Runner(const Invocation& call, const Choice& choice, const ReportHandler& arrived)
        : choice_(choice),
          arrived_(arrived),
          engine_({.atOnce = call.options.atOnce}),
          progress_(call.console, choice.many ? choice.hosts.size() : 0,
                    Longest(call.options, choice.hosts.size())),
          results_(choice.hosts.size()) {}

    std::vector<HostReport> Run(const TaskMaker& makeTask) {
        tasks_.resize(choice_.hosts.size());
        for (size_t i = 0; i < choice_.hosts.size(); ++i) {
            const ChosenHost& host = choice_.hosts[i];
            if (!host.fault.empty()) {
                results_[i].push_back(LocalReport(host, host.fault));
                Done(i);
                continue;
            }
            tasks_[i] = makeTask(host);
            GoOn(i);
        }
        if (progress_.Watched()) Watch();
        engine_.Run();
        progress_.Clear();
        std::vector<HostReport> all;
        for (auto& reports : results_) {
            for (HostReport& report : reports) all.push_back(std::move(report));
        }
        return all;
    }

  private:
    void GoOn(size_t index) {
        std::optional<Question> question = tasks_[index]->Next();
        if (!question) {
            results_[index] = std::move(tasks_[index]->reports);
            tasks_[index].reset();
            return Done(index);
        }
        Request request = {.target = choice_.hosts[index].target,
                           .text = ComposeRequest(question->command, question->params),
                           .maxReply = kMaxAnswer};
        engine_.Add(std::move(request),
                    [this, index, asked = std::move(*question)](Outcome outcome) {
                        tasks_[index]->Take(asked, std::move(outcome));
                        GoOn(index);
                    });
    }

    void Watch() {
        progress_.Draw();
        engine_.After(ProgressLine::kPeriod, [this] { Watch(); });
    }

    void Done(size_t index) {
        bool failed = false;
        for (const HostReport& report : results_[index]) {
            failed = failed || report.failure != Failure::kNone;
            progress_.Clear();
            if (arrived_) arrived_(report);
        }
        progress_.Count(failed);
        if (++done_ == results_.size()) engine_.Stop();  // whatever time the next look has left
    }

    const Choice& choice_;
    const ReportHandler& arrived_;
    Engine engine_;
    ProgressLine progress_;
    std::vector<std::unique_ptr<HostTask>> tasks_;
    std::vector<std::vector<HostReport>> results_;
    size_t done_ = 0;
};

}  // namespace

std::optional<Question> QuestionList::Next() {
    bool lost = !reports.empty() && !IsReply(reports.back().failure);
    if (lost || next_ == questions_.size()) return {};
    return questions_[next_++];
}

void QuestionList::Take(const Question& question, Outcome outcome) {
    reports.push_back(MakeReport(host_, question, std::move(outcome)));
}

HostReport MakeReport(const ChosenHost& host, const Question& question, Outcome outcome) {
    HostReport report;
    report.host = &host;
    report.failure = outcome.failure;
    report.message = std::move(outcome.message);
    report.seconds = outcome.seconds;
    report.answer = std::move(outcome.answer);
    if (report.failure == Failure::kNone) {
        bool good = ReadReply(question.command, question.params, report.answer, report.records,
                              report.message);
        if (!good) report.failure = Failure::kBadReply;
    } else if (report.failure == Failure::kAgentCode) {
        report.message = Complaint(question.command, report.answer);
        Record asked = AskedFields(question.command, question.params);
        if (!asked.empty()) report.records = {std::move(asked)};
    }
    return report;
}

HostReport LocalReport(const ChosenHost& host, std::string message) {
    HostReport report;
    report.host = &host;
    report.message = std::move(message);
    return report;
}

std::vector<HostReport> AskHosts(const Invocation& call, const Choice& choice,
                                 const TaskMaker& makeTask, const ReportHandler& arrived) {
    RaiseDescriptorLimit();  // each host takes a descriptor while it is asked
    return Runner(call, choice, arrived).Run(makeTask);
}

int StatusOf(const std::vector<HostReport>& reports) {
    int status = kReplyOk;
    for (const HostReport& report : reports) {
        if (!IsReply(report.failure)) return kNoReply;
        if (report.failure != Failure::kNone) status = kReplyOther;
    }
    return status;
}

}  // namespace zot::client
