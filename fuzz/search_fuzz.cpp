// The search language on any bytes: the first byte holds the two flags, the text up to the first LF
// is the expression, the rest is the line. The result must be that of the postfix tokens evaluated
// one by one, with each text searched for position by position.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string_view>
#include <vector>

#include "base/ascii.h"
#include "expr/search.h"

namespace {

using namespace zot;

bool Contains(std::string_view line, std::string_view text, bool caseSensitive, bool wholeWord) {
    auto same = [&](char a, char b) {
        return caseSensitive ? a == b : LowerAscii(a) == LowerAscii(b);
    };
    for (size_t at = 0; !text.empty() && at + text.size() <= line.size(); ++at) {
        size_t matched = 0;
        while (matched < text.size() && same(line[at + matched], text[matched])) ++matched;
        size_t behind = at + text.size();
        bool word = (at == 0 || !IsAlnum(line[at - 1])) &&
                    (behind == line.size() || !IsAlnum(line[behind]));
        if (matched == text.size() && (word || !wholeWord)) return true;
    }
    return false;
}

bool EvaluateSlowly(const VyStringList& postfix, std::string_view line, bool caseSensitive,
                    bool wholeWord) {
    std::vector<bool> stack;
    for (int32_t i = 0; i < postfix.Count(); ++i) {
        std::string_view token = postfix.ItemView(i);
        bool binary = token == "and" || token == "or";
        if (stack.size() < (binary ? 2U : token == "not" ? 1U : 0U)) return false;
        if (token == "not") {
            stack.back() = !stack.back();
        } else if (binary) {
            bool right = stack.back();
            stack.pop_back();
            stack.back() = token == "or" ? stack.back() || right : stack.back() && right;
        } else {
            token = token.size() < 2 ? std::string_view() : token.substr(1, token.size() - 2);
            stack.push_back(Contains(line, token, caseSensitive, wholeWord));
        }
    }
    return stack.size() == 1 && stack[0];
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    bool caseSensitive = (data[0] & 1) != 0;
    bool wholeWord = (data[0] & 2) != 0;
    std::string_view input(reinterpret_cast<const char*>(data) + 1, size - 1);
    std::string_view expression = input.substr(0, input.find('\n'));
    std::string_view line = input.substr(std::min(expression.size() + 1, input.size()));

    ExpressionParser parser(SearchOperatorTable);
    std::string_view rest = expression;
    if (!ParseExpression(parser, rest, false)) {
        if (parser.errorText.Empty()) std::abort();
        return 0;
    }
    SearchProgram program(parser.output, caseSensitive, wholeWord);
    if (program.Matches(line) != EvaluateSlowly(parser.output, line, caseSensitive, wholeWord)) {
        std::abort();
    }
    return 0;
}
