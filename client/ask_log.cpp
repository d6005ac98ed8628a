#include <memory>
#include <ostream>
#include <string>

#include "client/log_scan.h"
#include "client/log_state.h"
#include "client/people.h"
#include "client/subcommands.h"

namespace zot::client {
namespace {

// Each line costs a request.
constexpr size_t kMaxLines = 1000;

// The new lines of a log since the last run. If a later request fails, the lines already read are
// forgotten: the next run shows them again.
class LogTask : public HostTask {
  public:
    LogTask(const Invocation& call, const ChosenHost& host)
        : call_(call), host_(host), file_(call.options.words[1]), pattern_(call.options.words[2]) {
        // Not the position of the plugin's check, which must not lose its lines to this.
        std::string identity = "shown\n" + host.target.host + "\n" +
                               std::to_string(host.target.port) + "\n" + file_ + "\n" + pattern_;
        std::string error;
        if (!state_.Open(call.options.stateFile, identity, call.environment,
                         Deadline(host.target.timeout), error)) {
            Give(LocalReport(host, error));
            return;
        }
        position_ = state_.Position();
        report_.host = &host;
        report_.failure = Failure::kNone;
        report_.answer.code = "200";
    }

    std::optional<Question> Next() override {
        if (done_) return {};
        return Question{"TEST-TextLog", ScanParams(file_, pattern_, position_, Find::kNext)};
    }

    void Take(const Question& question, Outcome outcome) override {
        HostReport now = MakeReport(host_, question, std::move(outcome));
        report_.seconds += now.seconds;
        Scan scan;
        if (now.failure != Failure::kNone) return Give(std::move(now));
        bool first = position_.lastSize == 0;
        TakeScan(now.answer, scan, position_);
        if (scan.found) report_.records.push_back({{"path", file_}, {"line", scan.line}});
        if (scan.found && scan.more && report_.records.size() < kMaxLines) return;
        std::string error;
        if (!state_.Save(position_, error, state_.Alarm())) return Give(LocalReport(host_, error));
        if (first) Note(call_.console, host_.host.name + ": watching " + file_ + " from now on");
        Give(std::move(report_));
    }

  private:
    void Give(HostReport report) {
        reports.push_back(std::move(report));
        done_ = true;
    }

    const Invocation& call_;
    const ChosenHost& host_;
    std::string file_, pattern_;
    LogState state_;
    ScanPosition position_;
    HostReport report_;
    bool done_ = false;
};

}  // namespace

int AskLog(Invocation& call) {
    if (!call.options.stateFile.empty()) {
        Choice choice;
        std::string error;
        if (!ChooseHosts(call, choice, error)) return Fail(call.console, error, kWrongUsage);
        if (choice.many) {
            return Fail(call.console, "--state is the file of one host", kWrongUsage);
        }
    }
    return AskTasks(call, "TEST-TextLog",
                    [&](const ChosenHost& host) { return std::make_unique<LogTask>(call, host); });
}

}  // namespace zot::client
