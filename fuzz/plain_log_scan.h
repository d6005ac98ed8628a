// The plainest scan of a log, to compare the fast one with: every line is cut by itself, kept, and
// tested alone.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "checks/logs/line_matcher.h"
#include "expr/condition.h"
#include "expr/expression_parser.h"
#include "expr/find_text.h"
#include "tests/support/expressions.h"

namespace zot::fuzz {

inline int64_t PlainMatch(std::string_view line, const LogCriterion& criterion) {
    if (criterion.kind == LogCriterion::Kind::kText) {
        return FindText(line, criterion.text, criterion.caseSensitive, criterion.wholeWord);
    }
    if (criterion.kind == LogCriterion::Kind::kSearch) {
        return test::EvaluateSearchText(line, criterion.text, criterion.caseSensitive,
                                        criterion.wholeWord);
    }
    ExpressionParser parser(ConditionOperatorTable);
    std::string_view rest = criterion.text;
    if (!ParseExpression(parser, rest, false)) return 0;
    VyString errorText;
    const VyStringList tokens = test::WithLine(parser.output, line);
    return ConditionProgram(tokens).Evaluate(errorText);
}

struct PlainScan {
    int64_t result = 0;
    int64_t position = 0;
    std::string foundLine;
    bool byFirst = false;
    std::vector<std::string> allFound;
};

// For expressions, and for the report, only a line's first `longest` bytes count.
inline PlainScan ScanPlainly(std::string_view content, int64_t position,
                             const std::vector<LogCriterion>& criteria, bool findAll,
                             size_t longest) {
    PlainScan scan;
    scan.position = position;
    std::string line;
    for (auto at = static_cast<size_t>(position); at < content.size(); ++at) {
        if (content[at] != '\n' && content[at] != '\r') {
            line += content[at];
            continue;
        }
        if (line.empty()) continue;
        int64_t consumed = scan.position;
        scan.position = static_cast<int64_t>(at) + 1;
        std::string head = line.substr(0, longest);
        for (const LogCriterion& criterion : criteria) {
            bool isText = criterion.kind == LogCriterion::Kind::kText;
            int64_t value = PlainMatch(isText ? line : head, criterion);
            if (value == 0) continue;
            scan.result = consumed + value;
            scan.foundLine = head;
            scan.byFirst = &criterion == &criteria.front();
            scan.allFound.push_back(head);
            if (!findAll) return scan;
            break;
        }
        line.clear();
    }
    return scan;
}

}  // namespace zot::fuzz
