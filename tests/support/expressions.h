// Evaluates an expression once from its text, which only tests do.
#pragma once

#include <string_view>

#include "base/vystring.h"
#include "expr/condition.h"
#include "expr/expression_parser.h"
#include "expr/search.h"

namespace zot::test {

// False, with `errorText` unchanged, when the condition does not parse.
inline bool EvaluateConditionText(std::string_view expression, VyString& errorText) {
    ExpressionParser parser(ConditionOperatorTable);
    return ParseExpression(parser, expression, false) &&
           ConditionProgram(parser.output).Evaluate(errorText);
}

// False when the expression does not parse.
inline bool EvaluateSearchText(std::string_view line, std::string_view expression,
                               bool caseSensitive, bool wholeWord) {
    ExpressionParser parser(SearchOperatorTable);
    return ParseExpression(parser, expression, false) &&
           SearchProgram(parser.output, caseSensitive, wholeWord).Matches(line);
}

}  // namespace zot::test
