#include <cstddef>
#include <cstdint>
#include <ctime>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/numbers.h"
#include "base/vystring.h"
#include "client/agent_client.h"
#include "client/check.h"
#include "client/log_scan.h"
#include "client/log_state.h"
#include "client/options.h"
#include "client/plugin.h"
#include "client/request_packet.h"
#include "client/text.h"
#include "protocol/request_text.h"

namespace zot::client {
namespace {

// Each matching line costs a request, so counting stops in a log that is full of them.
constexpr int kMaxMatches = 1000;

class Scanner {
  public:
    Scanner(const CheckRun& run, ScanPosition& position) : run_(run), position_(position) {}

    // Counts the new matching lines and moves the position after them. On failure returns false,
    // with the failure in `result`.
    bool Count(int& matches, bool& all, std::string& lastLine, CheckResult& result);

  private:
    bool Ask(Find find, Scan& scan, CheckResult& result);

    const CheckRun& run_;
    ScanPosition& position_;
};

bool Scanner::Ask(Find find, Scan& scan, CheckResult& result) {
    constexpr size_t kReplyLines = 7;
    auto params = ScanParams(run_.Arguments()[0], run_.Arguments()[1], position_, find);
    Answer answer;
    if (!run_.Ask("TEST-TextLog", params, kReplyLines, answer, result)) {
        bool missing =
            answer.code == "301" && !answer.lines.empty() && answer.lines[0].starts_with("File ");
        if (missing) result.status = kCritical;
        return false;
    }
    return TakeScan(answer, scan, position_);
}

bool Scanner::Count(int& matches, bool& all, std::string& lastLine, CheckResult& result) {
    int half = run_.TimeLimit().Remaining() / 2;
    Scan scan;
    do {
        if (!Ask(Find::kNext, scan, result)) return false;
        if (!scan.found) return true;
        ++matches;
        lastLine = scan.line;
        if (!scan.more) return true;
    } while (matches < kMaxMatches && run_.TimeLimit().Remaining() > half);
    all = false;
    if (!Ask(Find::kLast, scan, result)) return false;
    if (scan.found) lastLine = scan.line;
    return true;
}

}  // namespace

void CheckLog(const CheckRun& run, CheckResult& result) {
    const std::string& file = run.Arguments()[0];
    const std::string& pattern = run.Arguments()[1];
    const Options& options = run.GivenOptions();
    std::string identity = options.target.host + "\n" + std::to_string(options.target.port) + "\n" +
                           file + "\n" + pattern;
    std::string error;
    LogState state;
    if (!state.Open(options.stateFile, identity, run.GivenEnvironment(), run.TimeLimit(), error)) {
        return result.Fail(kUnknown, error);
    }
    ScanPosition position = state.Position();
    bool first = position.lastSize == 0;
    int matches = 0;
    bool all = true;
    std::string lastLine;
    // If a later request fails, the lines already counted are forgotten: the next run counts them
    // again.
    if (!Scanner(run, position).Count(matches, all, lastLine, result)) return;
    const int64_t now = time(nullptr);
    LogAlarm alarm = state.Alarm();
    if (matches > 0) alarm = {now, matches, lastLine};
    if (!state.Save(position, error, alarm)) return result.Fail(kUnknown, error);

    result.value = matches;
    result.label = "matches";
    result.limits = ";0";
    if (first) {
        result.text = "watching " + file + " from now on";
        return;
    }
    result.text = Concat({all ? "" : "at least ", Count(matches, "new line", "new lines"),
                          " with '", pattern, "' in ", file});
    if (matches > 0) {
        result.text += ", the last: " + lastLine;
    } else if (alarm.time != 0 && now - alarm.time < int64_t{options.holdMinutes} * 60) {
        // A monitoring system takes an alarm for real only after several checks.
        result.judged = static_cast<double>(alarm.matches);
        const auto age = static_cast<double>(std::max<int64_t>(now - alarm.time, 1));
        result.text += Concat({", but ", Count(result.judged.value(), "line", "lines"), " ",
                               FormatSeconds(age), " ago: ", alarm.line});
    }
}

}  // namespace zot::client