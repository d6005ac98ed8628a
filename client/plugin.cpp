#include "client/plugin.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <optional>
#include <ostream>
#include <span>
#include <vector>

#include "base/escaping.h"
#include "base/vystring.h"
#include "client/agent_client.h"
#include "client/check.h"
#include "client/engine.h"
#include "client/host_choice.h"
#include "client/options.h"
#include "client/range.h"
#include "client/replies.h"
#include "client/request_packet.h"
#include "client/text.h"
#include "protocol/request_text.h"

namespace zot::client {
namespace {

constexpr std::string_view kStatusNames[] = {"OK", "WARNING", "CRITICAL", "UNKNOWN"};

// A bar would begin the performance data; a line break or another control character, the next line.
std::string Printable(std::string_view text, bool keepLines) {
    std::string result;
    for (char c : text) {
        auto byte = static_cast<unsigned char>(c);
        bool control = (byte < 32 || byte == 127) && !(keepLines && c == '\n');
        if (c == '\r' && keepLines) continue;
        result += c == '|' ? '/' : control ? ' ' : c;
    }
    return result;
}

int Print(const Console& console, std::string_view service, PluginStatus status,
          std::string_view text, std::string_view data, std::string_view longText) {
    std::ostream& out = console.out;
    for (char c : service) out << static_cast<char>(c >= 'a' && c <= 'z' ? c - 32 : c);
    out << ' ' << kStatusNames[status] << " - " << Printable(Shown(console, text), false);
    if (!data.empty()) out << " | " << data;
    out << '\n' << Printable(Shown(console, longText), true);
    if (!longText.empty() && !longText.ends_with('\n')) out << '\n';
    return out.flush() ? status : Fail(console, "cannot write to standard output", kNoReply);
}

// Ends the process with a status one second after the time limit, whatever hangs (a state file on a
// dead network mount, for example): a monitoring system kills a plugin that is silent for too long.
class HardTimeLimit {
  public:
    explicit HardTimeLimit(std::chrono::milliseconds limit) {
        struct sigaction action {};
        action.sa_handler = [](int) {
            constexpr std::string_view kText = "ZOTQ UNKNOWN - the time is up\n";
            ssize_t ignored = write(STDOUT_FILENO, kText.data(), kText.size());
            static_cast<void>(ignored);
            _exit(kUnknown);
        };
        sigaction(SIGALRM, &action, nullptr);
        alarm(static_cast<unsigned>(std::chrono::ceil<std::chrono::seconds>(limit).count()) + 1);
    }
    ~HardTimeLimit() { alarm(0); }
    HardTimeLimit(const HardTimeLimit&) = delete;
    HardTimeLimit& operator=(const HardTimeLimit&) = delete;
};

std::string PerformanceData(const CheckResult& result, const std::optional<Range>& warning,
                            const std::optional<Range>& critical) {
    std::string data;
    if (result.value) {
        data =
            Concat({result.label, "=", FormatDecimal(*result.value * result.factor, kDataDecimals),
                    result.unit, ";", warning ? warning->Format(result.factor) : "", ";",
                    critical ? critical->Format(result.factor) : "", result.limits});
        data.erase(data.find_last_not_of(';') + 1);
    }
    if (!data.empty() && !result.otherData.empty()) data += ' ';
    data += result.otherData;
    return data;
}

int RunCheck(const Check& check, Invocation& call) {
    const Options& options = call.options;
    std::optional<Range> critical = options.critical;
    if (!check.defaultCritical.empty() && !options.warning && !critical) {
        critical = Range::Parse(check.defaultCritical);
    }
    CheckResult result;
    check.run(CheckRun(call), result);
    PluginStatus status = kOk;
    double judged = result.judged.value_or(result.value.value_or(0));
    if (result.status) {
        status = *result.status;
    } else if (critical && critical->Alerts(judged)) {
        status = kCritical;
    } else if (options.warning && options.warning->Alerts(judged)) {
        status = kWarning;
    }
    return Print(call.console, check.name, status, result.text,
                 PerformanceData(result, options.warning, critical), result.longText);
}

// The agent trims a line, skips an empty one and reads "%0D" and "%0A" as line breaks.
bool FitsRequestLine(std::string_view text) {
    VyString line = Escape(text);
    return Unescape(text) == text && GetLine(line.View(), 1) == line.View();
}

const Check* FindCheck(std::string_view name) {
    for (const Check& check : kChecks) {
        if (check.name == name) return &check;
    }
    return nullptr;
}

std::string UsageFault(const Check& check, const Options& options) {
    size_t count = options.words.size() - 1;
    if (count < check.minArguments || count > check.maxArguments) {
        return "usage: zotq --plugin [OPTION ...] " + std::string(check.name) + " " +
               std::string(check.arguments);
    }
    if (std::find(options.words.begin(), options.words.end(), "") != options.words.end()) {
        return "an argument is empty";
    }
    if (check.run != CheckLog && (!options.stateFile.empty() || options.holdMinutes > 0)) {
        return "the check " + std::string(check.name) + " takes no --state and no --hold";
    }
    if (!check.takesRanges && (options.warning || options.critical)) {
        return "the check " + std::string(check.name) + " takes no -w and -c";
    }
    return {};
}

}  // namespace

CheckRun::CheckRun(const Invocation& call)
    : call_(call),
      arguments_(std::span(call.options.words).subspan(1)),
      deadline_(call.options.target.timeout) {}

bool CheckRun::Exchange(std::string_view command, std::span<const std::string> params,
                        Answer& answer, CheckResult& result) const {
    for (const std::string& param : params) {
        if (FitsRequestLine(param)) continue;
        constexpr size_t kShown = 60;
        result.Fail(kUnknown, "the protocol cannot carry this parameter as it is: " +
                                  param.substr(0, kShown));
        return false;
    }
    Target target = call_.options.target;
    target.timeout = std::chrono::milliseconds(deadline_.Remaining());
    Outcome outcome = AskOnce(target, ComposeRequest(command, params));
    answer = std::move(outcome.answer);
    seconds_ = outcome.seconds;
    sameHost_ = outcome.sameHost;
    if (IsReply(outcome.failure)) return true;
    int status = call_.options.unreachable.value_or(kUnknown);
    result.Fail(static_cast<PluginStatus>(status), outcome.message);
    return false;
}

bool CheckRun::Ask(std::string_view command, std::span<const std::string> params, size_t lineCount,
                   Answer& answer, CheckResult& result) const {
    answer = {};
    if (!Exchange(command, params, answer, result)) return false;
    if (answer.code != "200") {
        result.Fail(kUnknown, Complaint(command, answer));
    } else if (answer.lines.size() < lineCount) {
        result.Fail(kUnknown, "the agent's reply is too short");
    } else {
        return true;
    }
    return false;
}

bool CheckRun::AskForValue(std::string_view command, std::span<const std::string> params,
                           size_t line, Answer& answer, CheckResult& result) const {
    double value = 0;
    if (!Ask(command, params, line + 1, answer, result)) return false;
    if (!ReadNumber(answer.lines[line], value, result)) return false;
    result.value = value;
    return true;
}

bool CheckRun::Follow(Probe& probe, CheckResult& result) const {
    while (auto question = probe.Next()) {
        Answer reply;
        if (!Exchange(question->command, question->params, reply, result)) return false;
        probe.SetSameHost(sameHost_);
        probe.Take(reply);
    }
    const Answer& answer = probe.answer;
    if (answer.code != "200" || answer.lines.empty()) {
        result.Fail(kUnknown, Complaint("", answer));
        return false;
    }
    double value = 0;
    if (!ReadNumber(answer.lines[0], value, result)) return false;
    result.value = value;
    return true;
}

bool ReadNumber(std::string_view line, double& value, CheckResult& result) {
    if (ParseDecimal(TrimView(line), value)) return true;
    result.Fail(kUnknown, "not a number in the agent's reply: " + std::string(line));
    return false;
}

int RunPlugin(Invocation& call) {
    const Options& options = call.options;
    if (options.words.empty()) return PluginUsageError(call.console, "no check");
    const Check* check = FindCheck(options.words[0]);
    if (!check) {
        return PluginUsageError(call.console, "no check with the name " + options.words[0]);
    }
    HardTimeLimit limit(options.target.timeout);
    std::string error = UsageFault(*check, options);
    if (!error.empty()) return PluginUsageError(call.console, error);
    Choice choice;
    if (!ChooseHosts(call, choice, error)) return PluginUsageError(call.console, error);
    if (choice.many) return PluginUsageError(call.console, "--plugin asks one host");
    call.options.target = choice.hosts[0].target;
    return RunCheck(*check, call);
}

int PluginUsageError(const Console& console, std::string_view message) {
    return Print(console, "zotq", kUnknown, std::string(message) + " (see zotq --help)", "", "");
}

std::string ChecksHelp() {
    std::vector<std::pair<std::string, std::string_view>> rows;
    for (const Check& check : kChecks) {
        std::string left = std::string(check.name) + " " + std::string(check.arguments);
        rows.emplace_back(left, check.help);
    }
    return HelpTable(rows);
}

}  // namespace zot::client
