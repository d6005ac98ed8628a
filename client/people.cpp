#include "client/people.h"

#include "client/report_printer.h"

namespace zot::client {

bool Prepare(Invocation& call, const std::vector<std::string>& fields, Choice& choice,
             int& status) {
    std::string error;
    if (CheckFields(call.options.fields, fields, error) && ChooseHosts(call, choice, error)) {
        return true;
    }
    status = Fail(call.console, error, kWrongUsage);
    return false;
}

int AskTasks(Invocation& call, const std::string& command, const TaskMaker& makeTask) {
    Choice choice;
    int status = 0;
    if (!Prepare(call, FieldNames(command), choice, status)) return status;
    ReportPrinter printer(call, choice.many);
    return printer.Finish(AskHosts(call, choice, makeTask,
                                   [&](const HostReport& report) { printer.Arrived(report); }));
}

int AskQuestions(Invocation& call, std::vector<Question> questions) {
    return AskTasks(call, questions[0].command, [&](const ChosenHost& host) {
        return std::make_unique<QuestionList>(host, questions);
    });
}

}  // namespace zot::client
