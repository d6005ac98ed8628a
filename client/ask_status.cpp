#include <ostream>
#include <string>
#include <vector>

#include "client/people.h"
#include "client/report_printer.h"
#include "client/report_values.h"
#include "client/subcommands.h"
#include "client/text.h"

namespace zot::client {
namespace {

struct StatusField {
    const char *name, *ofInfo;
    bool inTable;
};

constexpr StatusField kFields[] = {
    {"version", "agent_version", true},        {"system", "system", true},
    {"requests", "opened_connections", false}, {"running", "active_connections", false},
    {"refused", "failed_connections", false},  {"hostname", "host_name", false},
};

class StatusTask : public QuestionList {
  public:
    using QuestionList::QuestionList;
    void Take(const Question& question, Outcome outcome) override {
        QuestionList::Take(question, std::move(outcome));
        for (Record& info : reports.back().records) {
            Record status;
            for (const StatusField& row : kFields) {
                const Field* field = FindField(info, row.ofInfo);
                status.push_back({row.name, field ? field->value : Value(), {}, row.inTable});
            }
            info = std::move(status);
        }
    }
};

std::string Sentence(const HostReport& report) {
    const Record& status = report.records[0];
    auto text = [&](const char* name) { return HumanText(*FindField(status, name)); };
    return Concat({report.host->host.name, ": zot ", text("version"), " on ", text("system"), ", ",
                   FormatSeconds(report.seconds), "; ",
                   Count(Number(status, "requests").value_or(0), "request", "requests"), ", ",
                   text("running"), " running, ", text("refused"), " refused\n"});
}

}  // namespace

int AskStatus(Invocation& call) {
    static const std::vector<Question> kQuestions = {{"GetInfo", {}}};
    std::vector<std::string> names;
    for (const StatusField& field : kFields) names.emplace_back(field.name);
    Choice choice;
    int status = 0;
    if (!Prepare(call, names, choice, status)) return status;
    ReportPrinter printer(call, choice.many, {"version", "system", "seconds"});
    auto makeTask = [](const ChosenHost& host) {
        return std::make_unique<StatusTask>(host, kQuestions);
    };
    auto reports = AskHosts(call, choice, makeTask,
                            [&](const HostReport& report) { printer.Arrived(report); });
    bool sentence = !choice.many && call.options.output == Output::kDefault &&
                    call.options.fields.empty() && reports[0].failure == Failure::kNone;
    if (!sentence) return printer.Finish(reports);
    call.console.out << Sentence(reports[0]);
    return Finish(call.console, kReplyOk);
}

}  // namespace zot::client
