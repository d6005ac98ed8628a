#include <memory>
#include <string_view>
#include <utility>

#include "base/escaping.h"
#include "base/vystring.h"
#include "checks/files/directory_iterator.h"
#include "checks/logs/line_matcher.h"
#include "checks/logs/log_checks.h"
#include "checks/logs/log_watch.h"
#include "config/settings.h"
#include "protocol/reply.h"
#include "protocol/request_text.h"

namespace zot {

void TestTextLog(std::string_view params, const AgentSettings& /*settings*/, Reply& reply) {
    LogWatch watch;
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
    AnswerScan(watch, 1024, byFirst, reply);
}

}  // namespace zot
