// Asks the chosen hosts, each its own questions in their order, all hosts at once.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "client/engine.h"
#include "client/host_choice.h"
#include "client/invocation.h"
#include "client/probe.h"
#include "client/replies.h"

namespace zot::client {

// The result of one question.
struct HostReport {
    const ChosenHost* host = nullptr;
    Failure failure = Failure::kLocal;
    std::string message;  // for people; empty after an answer 200
    double seconds = 0;
    Answer answer;
    std::vector<Record> records;  // after kAgentCode at most one, with what was asked about
};

// What one host is asked: a list of questions, or whatever follows from the answers so far.
class HostTask {
  public:
    virtual ~HostTask() = default;
    // What to ask now; nothing when the host is done.
    virtual std::optional<Question> Next() = 0;
    virtual void Take(const Question& question, Outcome outcome) = 0;

    // What to report. Filled by Take.
    std::vector<HostReport> reports;
};

// Asks one question after another. A host that gives no reply is not asked the rest.
class QuestionList : public HostTask {
  public:
    QuestionList(const ChosenHost& host, const std::vector<Question>& questions)
        : host_(host), questions_(questions) {}
    std::optional<Question> Next() override;
    void Take(const Question& question, Outcome outcome) override;

  private:
    const ChosenHost& host_;
    const std::vector<Question>& questions_;
    size_t next_ = 0;
};

using TaskMaker = std::function<std::unique_ptr<HostTask>(const ChosenHost& host)>;
using ReportHandler = std::function<void(const HostReport& report)>;

// Reports the outcome; a reply 200 that cannot be read is a bad one.
HostReport MakeReport(const ChosenHost& host, const Question& question, Outcome outcome);
// Reports our own trouble.
HostReport LocalReport(const ChosenHost& host, std::string message);

// Runs all tasks to their end, with a line of progress if somebody watches. `arrived` gets each
// report as soon as its host is done. Returns all of them in the order of the hosts.
std::vector<HostReport> AskHosts(const Invocation& call, const Choice& choice,
                                 const TaskMaker& makeTask, const ReportHandler& arrived);

// 3 when some host gave no reply, else 1 when some agent answered anything but 200, else 0.
int StatusOf(const std::vector<HostReport>& reports);

}  // namespace zot::client
