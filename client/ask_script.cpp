#include <memory>
#include <ostream>
#include <span>
#include <string>
#include <vector>

#include "client/people.h"
#include "client/reply_values.h"
#include "client/report_printer.h"
#include "client/script_request.h"
#include "client/subcommands.h"
#include "client/text.h"

namespace zot::client {
namespace {

// A script that failed makes the answer a bad one, as if the agent had said so.
class ScriptTask : public QuestionList {
  public:
    using QuestionList::QuestionList;
    void Take(const Question& question, Outcome outcome) override {
        QuestionList::Take(question, std::move(outcome));
        HostReport& report = reports.back();
        ScriptResult script;
        if (report.failure != Failure::kNone || !ReadScriptResult(report.answer, script)) return;
        Record record = {{"exit_code", Value(), {}, true, "EXIT"},
                         {"result", script.line},
                         {"output", LinesOf(script.output), {}, false}};
        if (script.exitCode) record[0].value = int64_t{*script.exitCode};
        report.records = {std::move(record)};
        if (script.exitCode.value_or(0) == 0) return;
        report.failure = Failure::kAgentCode;
        report.message = "the script failed with " + std::to_string(*script.exitCode);
    }
};

}  // namespace

int AskScript(Invocation& call) {
    const auto& words = call.options.words;
    std::vector<Question> questions = {{"TEST-ShellScript", {}}};
    std::string error;
    if (!ScriptParams(words[1], std::span(words).subspan(2),
                      ScriptSeconds(static_cast<int>(call.options.target.timeout.count())),
                      questions[0].params, error)) {
        return Fail(call.console, error, kWrongUsage);
    }
    Choice choice;
    int status = 0;
    if (!Prepare(call, {"exit_code", "result", "output"}, choice, status)) return status;
    ReportPrinter printer(call, choice.many);
    auto makeTask = [&](const ChosenHost& host) {
        return std::make_unique<ScriptTask>(host, questions);
    };
    auto reports = AskHosts(call, choice, makeTask,
                            [&](const HostReport& report) { printer.Arrived(report); });
    bool asItCame = !choice.many && call.options.output == Output::kDefault &&
                    call.options.fields.empty() && !reports[0].records.empty();
    if (!asItCame) return printer.Finish(reports);
    ScriptResult script;
    ReadScriptResult(reports[0].answer, script);
    for (const std::string& line : LinesOf(script.output)) {
        call.console.out << Shown(call.console, line) << '\n';
    }
    if (!reports[0].message.empty()) Note(call.console, reports[0].message);
    return Finish(call.console, StatusOf(reports));
}

}  // namespace zot::client
