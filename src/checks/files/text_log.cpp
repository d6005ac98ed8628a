#include "checks/files/text_log.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "checks/files/file_macros.h"
#include "checks/files/find_wildcard_file.h"
#include "checks/files/log_scanner.h"
#include "protocol/request_text.h"

namespace zot {
namespace {

constexpr size_t kNoLimit = std::string_view::npos;

bool NumberLine(std::string_view params, int32_t line) { return ToInt(GetLine(params, line)) != 0; }

// Three lines from `line` on.
bool ReadState(std::string_view params, int32_t line, LogScanState& state) {
    return ParseInt64(GetLine(params, line), state.position) &&
           ParseInt64(GetLine(params, line + 1), state.lastSize) &&
           ParseInt64(GetLine(params, line + 2), state.lastModified);
}

// Four lines from `line` on. False for a kind that does not exist.
bool ReadCriterion(std::string_view params, int32_t line, LogCriterion& criterion) {
    int32_t kind = ToInt(GetLine(params, line + 1));
    if (kind < 0 || kind > static_cast<int32_t>(LogCriterion::Kind::kCondition)) return false;
    criterion.text = Unescape(RawLine(params, line));
    criterion.kind = static_cast<LogCriterion::Kind>(kind);
    criterion.caseSensitive = NumberLine(params, line + 2);
    criterion.wholeWord = NumberLine(params, line + 3);
    return true;
}

void AppendState(const LogScanState& state, int64_t fileSize, Reply& reply) {
    reply.AppendInt64(state.position);
    reply.AppendInt64(state.lastSize);
    reply.AppendInt64(state.lastModified);
    reply.AppendInt64(fileSize);
}

struct Watch {
    VyString path;
    LineMatchers matchers;
    LogScanState state;
    bool findAll = false;
};

// Scans, and without findAll scans again to see whether another match follows. Builds the part of
// the reply that both tests share. False when that is the whole reply, as the scan failed.
bool Answer(Watch& watch, size_t lineLimit, bool& byFirst, Reply& reply) {
    LogScanFindings found;
    int64_t result = ScanTextLog(watch.path, watch.matchers, watch.findAll, watch.state, found);
    if (result == -1) {
        reply.Start("301", Escape(found.errorText));
        return false;
    }
    reply.Start("200");
    reply.AppendInt64(result);
    reply.AppendLine(found.foundLine.View().substr(0, lineLimit));
    byFirst = found.byFirst;
    LogScanState next = watch.state;
    LogScanFindings further;
    bool more = !watch.findAll && ScanTextLog(watch.path, watch.matchers, false, next, further) > 0;
    reply.AppendFlag(more);
    // While more follow, the server asks again from behind this match; otherwise from the end.
    if (more || watch.findAll) {
        AppendState(watch.state, found.fileSize, reply);
    } else {
        AppendState(next, further.fileSize, reply);
    }
    return true;
}

// Reads the criteria of TEST-TextLog2; false with the reply when one is wrong.
bool ReadCriteria(std::string_view params, bool second, LineMatchers& matchers, Reply& reply) {
    LogCriterion criteria[2];
    size_t count = second ? 2 : 1;
    for (size_t i = 0; i < count; ++i) {
        if (ReadCriterion(params, i == 0 ? 6 : 11, criteria[i])) continue;
        reply.Start("501", "Wrong parameter");
        return false;
    }
    for (size_t i = 0; i < count; ++i) {
        VyString parserText;
        matchers.push_back(MakeLineMatcher(criteria[i], parserText));
        if (matchers.back()) continue;
        // Only this one of the four messages has a colon; servers show them as they are.
        bool colon = i == 0 && criteria[i].kind == LogCriterion::Kind::kCondition;
        std::string_view head = colon ? "Search expression error: " : "Search expression error";
        reply.Start("301", Escape(VyString::Concat(head, parserText)));
        return false;
    }
    return true;
}

}  // namespace

void TestTextLog(std::string_view params, const AgentSettings& settings, Reply& reply) {
    if (!settings.testTextLog) return reply.Start("600", "test is not allowed");
    Watch watch;
    watch.path = FindWildcardFile(GetLine(params, 1));
    if (watch.path.Empty()) return reply.Start("301", "File does not exist");
    if (!ReadState(params, 3, watch.state)) return reply.Start("501", "Wrong parameter");
    LogCriterion criterion;
    criterion.text = Unescape(GetLine(params, 2));
    bool isExpression = NumberLine(params, 6);
    criterion.kind = isExpression ? LogCriterion::Kind::kSearch : LogCriterion::Kind::kText;
    watch.findAll = NumberLine(params, 7);
    criterion.caseSensitive = NumberLine(params, 8);
    criterion.wholeWord = NumberLine(params, 9);
    VyString ignored;
    if (auto matcher = MakeLineMatcher(criterion, ignored)) {
        watch.matchers.push_back(std::move(matcher));
    }
    bool byFirst = false;
    Answer(watch, 1024, byFirst, reply);
}

void TestTextLog2(std::string_view params, const AgentSettings& settings, Reply& reply) {
    if (!settings.testTextLog) return reply.Start("600", "test is not allowed");
    int32_t second = ToInt(GetLine(params, 10));
    // The line of the macro flag follows the number as it was sent, however many were meant.
    int64_t macroLine = 16 + int64_t{4} * second;
    bool macros = macroLine <= std::numeric_limits<int32_t>::max() &&
                  NumberLine(params, static_cast<int32_t>(std::max<int64_t>(macroLine, 0)));
    std::string_view name = GetLine(params, 1);
    Watch watch;
    watch.path = FindWildcardFile(macros ? ResolveFileMacros(name) : VyString(name));
    if (watch.path.Empty()) return reply.Start("301", "File does not exist");
    if (!ReadState(params, 2, watch.state)) return reply.Start("501", "Wrong parameter");
    watch.findAll = NumberLine(params, 5);
    if (!ReadCriteria(params, second != 0, watch.matchers, reply)) return;
    bool byFirst = false;
    if (!Answer(watch, kNoLimit, byFirst, reply)) return;
    reply.AppendFlag(byFirst);
    reply.AppendLine(watch.path, Escaping::kLineBreaks);
}

}  // namespace zot
