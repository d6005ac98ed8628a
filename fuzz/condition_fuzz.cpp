// The condition language on any bytes: the text up to the first LF is the condition, the rest is
// the line. A prepared condition must give the same result for the line as evaluating its tokens
// once the line has been put into them.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "expr/condition.h"
#include "tests/support/expressions.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace zot;
    std::string_view input(reinterpret_cast<const char*>(data), size);
    std::string_view expression = input.substr(0, input.find('\n'));
    std::string_view line = input.substr(std::min(expression.size() + 1, input.size()));

    ExpressionParser parser(ConditionOperatorTable);
    std::string_view rest = expression;
    if (!ParseExpression(parser, rest, false)) {
        if (parser.errorText.Empty()) std::abort();
        return 0;
    }
    VyString errorText;
    ConditionProgram program(parser.output);
    // Twice, because the second line meets a used stack.
    program.Evaluate(line, errorText);
    bool result = program.Evaluate(line, errorText);
    if (program.IsTrueOf(line) != result) std::abort();
    if (result && !errorText.Empty()) std::abort();

    VyString literalError;
    const VyStringList tokens = test::WithLine(parser.output, line);
    if (ConditionProgram(tokens).Evaluate(literalError) != result) std::abort();
    if (literalError != errorText) std::abort();
    return 0;
}
