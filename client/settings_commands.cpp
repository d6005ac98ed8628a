#include <algorithm>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "base/escaping.h"
#include "client/agent_client.h"
#include "client/people.h"
#include "client/report_printer.h"
#include "client/report_values.h"
#include "client/setting_change.h"
#include "client/settings_listing.h"
#include "client/settings_reply.h"
#include "client/subcommands.h"

namespace zot::client {
namespace {

bool IsPlain(const Options& options) {
    return options.output == Output::kDefault && options.fields.empty() && !options.fold &&
           !options.diff && options.failedFile.empty();
}

// Shows the password in every form, or in none.
class SettingsTask : public QuestionList {
  public:
    SettingsTask(const ChosenHost& host, const std::vector<Question>& questions, bool showPassword)
        : QuestionList(host, questions), showPassword_(showPassword) {}
    void Take(const Question& question, Outcome outcome) override {
        QuestionList::Take(question, std::move(outcome));
        HostReport& report = reports.back();
        for (std::string& line : report.answer.lines) {
            if (!line.starts_with(kPasswordLine)) continue;
            if (!showPassword_) line = std::string(kPasswordLine) + kHiddenPassword;
            for (Record& record : report.records) {
                for (Field& field : record) {
                    if (field.name == "password") field.value = line.substr(kPasswordLine.size());
                }
            }
        }
    }

  private:
    static constexpr std::string_view kPasswordLine = "Password=";

    bool showPassword_;
};

// One host's reply of name and value, for people to read.
int ShowListing(Invocation& call, const char* command) {
    Choice choice;
    int status = 0;
    if (!Prepare(call, FieldNames(command), choice, status)) return status;
    const std::vector<Question> questions = {{command, {}}};
    ReportPrinter printer(call, choice.many);
    auto makeTask = [&](const ChosenHost& host) {
        return std::make_unique<SettingsTask>(host, questions, call.options.showPassword);
    };
    auto reports = AskHosts(call, choice, makeTask,
                            [&](const HostReport& report) { printer.Arrived(report); });
    const HostReport& first = reports[0];
    bool asItCame = !choice.many && IsPlain(call.options) && IsReply(first.failure);
    if (!asItCame) return printer.Finish(reports);
    if (first.failure != Failure::kNone || call.options.json) {
        return FinishWithReply(call, first.answer);
    }
    PrintListing(first.answer, call.console.out);
    return Finish(call.console, kReplyOk);
}

// Looks before it changes anything if a change could lock out the one who asks, or should only be
// shown.
class SetTask : public HostTask {
  public:
    SetTask(const Options& options, const ChosenHost& host,
            const std::vector<SettingChange>& changes)
        : options_(options), host_(host), changes_(changes) {
        bool access = std::any_of(changes.begin(), changes.end(), [](const SettingChange& change) {
            return IsAboutAccess(change.name);
        });
        step_ = options.dryRun || (access && !options.force) ? Step::kLook : Step::kChange;
    }

    std::optional<Question> Next() override {
        if (step_ == Step::kLook) return Question{"GetSettings", {}};
        if (step_ == Step::kDone) return {};
        Question question = {"SetSettings", {}};
        for (const SettingChange& change : changes_) question.params.push_back(change.Line());
        return question;
    }

    void Take(const Question& question, Outcome outcome) override {
        const std::string ownAddress = outcome.localAddress;
        HostReport report = MakeReport(host_, question, std::move(outcome));
        const bool looked = step_ == Step::kLook;
        step_ = Step::kDone;
        if (looked && report.failure == Failure::kNone) {
            std::string fault = LockOut(report.answer, changes_, ownAddress);
            if (!fault.empty() && !options_.force) {
                report = LocalReport(host_, fault + " (--force does it anyway)");
            } else if (options_.dryRun) {
                report.records = Differences(report.answer);
            } else {
                step_ = Step::kChange;
                return;
            }
        }
        reports.push_back(std::move(report));
    }

  private:
    enum class Step { kLook, kChange, kDone };

    // What would change, one record for each setting; an empty one for nothing.
    std::vector<Record> Differences(const Answer& answer) const {
        const Record now = ReadSettings(answer);
        std::vector<Record> records;
        for (const SettingChange& change : changes_) {
            const Field* field = FindField(now, SnakeCase(change.name));
            std::string from = field ? PlainText(field->value) : "";
            std::string to(Unescape(change.value).View());
            std::erase(to, '\r');
            std::replace(from.begin(), from.end(), '\n', ' ');
            std::replace(to.begin(), to.end(), '\n', ' ');
            // The reply has it hidden.
            bool secret = change.name == "Password";
            if (from == to) continue;
            records.push_back({{"setting", change.name},
                               {"now", from},
                               {"then", secret ? std::string("a new one") : to}});
        }
        if (records.empty()) records.emplace_back();
        return records;
    }

    const Options& options_;
    const ChosenHost& host_;
    const std::vector<SettingChange>& changes_;
    Step step_;
};

}  // namespace

int AskInfo(Invocation& call) { return ShowListing(call, "GetInfo"); }

int ShowSettings(Invocation& call) { return ShowListing(call, "GetSettings"); }

int ChangeSettings(Invocation& call) {
    const auto& words = call.options.words;
    std::vector<SettingChange> changes;
    std::string error;
    for (size_t i = 1; i < words.size(); ++i) {
        if (!ReadChange(call.console, words[i], changes.emplace_back(), error)) {
            return Fail(call.console, error, kWrongUsage);
        }
    }
    Choice choice;
    int status = 0;
    if (!Prepare(call, {"setting", "now", "then"}, choice, status)) return status;
    ReportPrinter printer(call, choice.many);
    auto makeTask = [&](const ChosenHost& host) {
        return std::make_unique<SetTask>(call.options, host, changes);
    };
    auto reports = AskHosts(call, choice, makeTask,
                            [&](const HostReport& report) { printer.Arrived(report); });
    const HostReport& first = reports[0];
    bool asItCame = !choice.many && IsPlain(call.options) && IsReply(first.failure) &&
                    !(call.options.dryRun && first.failure == Failure::kNone);
    if (asItCame) return FinishWithReply(call, first.answer);
    if (!choice.many && IsPlain(call.options) && !first.records.empty() &&
        first.records[0].empty()) {
        call.console.out << "nothing would change\n";
        return Finish(call.console, kReplyOk);
    }
    if (!choice.many && first.failure == Failure::kLocal) {
        return Fail(call.console, first.message, kWrongUsage);
    }
    return printer.Finish(reports);
}

}  // namespace zot::client
