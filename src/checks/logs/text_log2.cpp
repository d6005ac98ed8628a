#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string_view>

#include "base/escaping.h"
#include "base/numbers.h"
#include "base/vystring.h"
#include "checks/files/directory_iterator.h"
#include "checks/files/file_macros.h"
#include "checks/logs/line_matcher.h"
#include "checks/logs/log_checks.h"
#include "checks/logs/log_watch.h"
#include "config/settings.h"
#include "protocol/reply.h"
#include "protocol/request_text.h"

namespace zot {
namespace {

constexpr size_t kNoLimit = std::string_view::npos;

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

void TestTextLog2(std::string_view params, const AgentSettings& /*settings*/, Reply& reply) {
    int32_t second = ToInt(GetLine(params, 10));
    // The line of the macro flag follows the number as it was sent, however many were meant.
    int64_t macroLine = 16 + int64_t{4} * second;
    bool macros = macroLine <= std::numeric_limits<int32_t>::max() &&
                  NumberLine(params, static_cast<int32_t>(std::max<int64_t>(macroLine, 0)));
    std::string_view name = GetLine(params, 1);
    LogWatch watch;
    watch.path = FindWildcardFile(macros ? ResolveFileMacros(name) : VyString(name));
    if (watch.path.Empty()) return reply.Start("301", "File does not exist");
    if (!ReadState(params, 2, watch.state)) return reply.Start("501", "Wrong parameter");
    watch.findAll = NumberLine(params, 5);
    if (!ReadCriteria(params, second != 0, watch.matchers, reply)) return;
    bool byFirst = false;
    if (!AnswerScan(watch, kNoLimit, byFirst, reply)) return;
    reply.AppendFlag(byFirst);
    reply.AppendLine(watch.path, Escaping::kLineBreaks);
}

}  // namespace zot
