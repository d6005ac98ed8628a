// The lexer and the parser of both small languages: infix text in, a list of postfix tokens out, by
// the shunting-yard method with two priorities per operator. Only the operator table decides which
// language it is. Time and memory grow only with the length of the text; nothing recurses.
#pragma once

#include <string_view>

#include "base/vystring.h"
#include "base/vystring_list.h"
#include "expr/operator_table.h"

namespace zot {

// One object per parse.
struct ExpressionParser {
    explicit ExpressionParser(OperatorTable operators) : table(operators) {}

    OperatorTable table;
    VyStringList output;  // the postfix tokens, in the order of evaluation
    VyString errorText;   // empty, or what was wrong with the last text
};

// Parses the text. False, with `errorText` set, on failure. The view moves past what was read. With
// `checkOnly` the output stays unchanged. An unmatched "(" is not a failure: it ends up in the
// output, where the evaluators fail on it. Throws only std::bad_alloc.
bool ParseExpression(ExpressionParser& parser, std::string_view& expressionText, bool checkOnly);

// Takes the next token off the front of the text: a view of the text, or an operator's keyword.
// Empty at the end of the text and, with `errorText` set, where a literal has no end.
std::string_view NextToken(ExpressionParser& parser, std::string_view& expressionText);

}  // namespace zot
