#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/numbers.h"
#include "base/vystring.h"
#include "client/agent_client.h"
#include "client/check.h"
#include "client/log_state.h"
#include "client/options.h"
#include "client/plugin.h"
#include "client/request_packet.h"
#include "client/text.h"
#include "protocol/request_text.h"

namespace zot::client {
namespace {

// Each matching line costs a request, so a log that is full of them is not counted to its end.
constexpr int kMaxMatches = 1000;

enum class Find { kNext, kLast };

// One reply to TEST-TextLog.
struct Scan {
    bool found = false;
    bool more = false;
    std::string line;
};

int64_t Number(const std::string& line) { return ToInt64(TrimView(line)); }

class Scanner {
  public:
    Scanner(const CheckRun& run, ScanPosition& position) : run_(run), position_(position) {}

    // Counts the new matching lines and moves the position behind them. Returns 1, or 0 with the
    // failure in `result`.
    int Count(int& matches, bool& all, std::string& lastLine, CheckResult& result);

  private:
    int Ask(Find find, Scan& scan, CheckResult& result);

    const CheckRun& run_;
    ScanPosition& position_;
};

int Scanner::Ask(Find find, Scan& scan, CheckResult& result) {
    constexpr size_t kReplyLines = 7;
    std::vector<std::string> params = {run_.Arguments()[0],
                                       run_.Arguments()[1],
                                       std::to_string(position_.position),
                                       std::to_string(position_.lastSize),
                                       std::to_string(position_.lastModified),
                                       "0",
                                       find == Find::kLast ? "1" : "0",
                                       "0",
                                       "0"};
    Answer answer;
    if (!run_.Ask("TEST-TextLog", params, kReplyLines, answer, result)) {
        bool missing =
            answer.code == "301" && !answer.lines.empty() && answer.lines[0].starts_with("File ");
        if (missing) result.status = kCritical;
        return 0;
    }
    scan.found = Number(answer.lines[0]) != 0;
    scan.line = answer.lines[1];
    scan.more = answer.lines[2] == "1";
    position_ = {Number(answer.lines[3]), Number(answer.lines[4]), Number(answer.lines[5])};
    // A size of 0 would mean to the agent that the log was never scanned, and it would skip the
    // first lines of a log that was empty. Any other size that is not the true one makes it read.
    if (position_.lastSize == 0) position_ = {0, 1, 0};
    return 1;
}

int Scanner::Count(int& matches, bool& all, std::string& lastLine, CheckResult& result) {
    int half = run_.TimeLimit().Remaining() / 2;
    Scan scan;
    do {
        if (!Ask(Find::kNext, scan, result)) return 0;
        if (!scan.found) return 1;
        ++matches;
        lastLine = scan.line;
        if (!scan.more) return 1;
    } while (matches < kMaxMatches && run_.TimeLimit().Remaining() > half);
    all = false;
    if (!Ask(Find::kLast, scan, result)) return 0;
    if (scan.found) lastLine = scan.line;
    return 1;
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
    // What was counted is forgotten when a later request fails: the next run counts it again.
    if (!Scanner(run, position).Count(matches, all, lastLine, result)) return;
    if (!state.Save(position, error)) return result.Fail(kUnknown, error);

    result.value = matches;
    result.label = "matches";
    result.limits = ";0";
    if (first) {
        result.text = "watching " + file + " from now on";
        return;
    }
    result.text = Concat({all ? "" : "at least ", Count(matches, "new line", "new lines"),
                          " with '", pattern, "' in ", file});
    if (matches > 0) result.text += ", the last: " + lastLine;
}

}  // namespace zot::client
