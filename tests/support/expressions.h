// Evaluates an expression once from its text, which only tests do.
#pragma once

#include <cstdint>
#include <string_view>

#include "base/vystring.h"
#include "base/vystring_list.h"
#include "expr/condition.h"
#include "expr/expression_parser.h"
#include "expr/search.h"
#include "expr/text_functions.h"

namespace zot::test {

// The tokens of a condition with the line as the operand that reads %data%.
inline VyStringList WithLine(const VyStringList& tokens, std::string_view line) {
    VyStringList result;
    for (int32_t i = 0; i < tokens.Count(); ++i) {
        const std::string_view token = tokens.ItemView(i);
        result.Add(Unquote(token) == "%data%" ? line : token);
    }
    return result;
}

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
