#include "expr/expression_parser.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "base/ascii.h"

namespace zot {
namespace {

bool IsQuote(char c) { return c == '"' || c == '\''; }

bool IsInteger(std::string_view token) {
    if (token.starts_with('+') || token.starts_with('-')) token.remove_prefix(1);
    return !token.empty() && std::all_of(token.begin(), token.end(), IsDigit);
}

// A bare token ends before a space or an operator; a tab or a quote does not end it.
size_t BareLength(OperatorTable table, std::string_view text) {
    size_t length = 1;
    while (length < text.size() && text[length] != ' ' &&
           FindOperatorAt(table, text, static_cast<int64_t>(length) + 1) < 0) {
        ++length;
    }
    return length;
}

bool Fail(ExpressionParser& parser, std::string_view message, std::string_view quoted) {
    parser.errorText = message;
    parser.errorText.Append('"');
    parser.errorText.Append(quoted);
    parser.errorText.Append('"');
    return false;
}

// The operators that wait for their right operand, and the list into which they go.
class OperatorStack {
  public:
    explicit OperatorStack(VyStringList* output) : output_(output) {}

    void Emit(std::string_view token) {
        if (output_ != nullptr) output_->Add(token);
    }
    void Push(const OperatorEntry* entry) { waiting_.push_back(entry); }
    void EmitAll() {
        while (!waiting_.empty()) EmitTop();
    }
    void EmitNotBelow(int32_t inputPriority) {
        while (!waiting_.empty() && inputPriority <= waiting_.back()->stackPriority) EmitTop();
    }
    // Empties the stack down to the nearest "(" and drops that; false if there is none.
    bool CloseGroup() {
        while (!waiting_.empty() && waiting_.back()->keyword != "(") EmitTop();
        if (waiting_.empty()) return false;
        waiting_.pop_back();
        return true;
    }

  private:
    void EmitTop() {
        Emit(waiting_.back()->keyword);
        waiting_.pop_back();
    }

    VyStringList* output_;
    std::vector<const OperatorEntry*> waiting_;
};

}  // namespace

std::string_view NextToken(ExpressionParser& parser, std::string_view& expressionText) {
    expressionText = TrimView(expressionText);
    if (expressionText.empty()) return {};
    std::string_view token;
    if (int32_t row = FindOperatorAt(parser.table, expressionText, 1); row >= 0) {
        token = parser.table[static_cast<size_t>(row)].keyword;
    } else if (IsQuote(expressionText.front())) {
        size_t close = expressionText.find(expressionText.front(), 1);
        if (close == std::string_view::npos) {
            parser.errorText = VyString::Concat("Unterminated string: ", expressionText);
            return {};
        }
        token = expressionText.substr(0, close + 1);
    } else {
        token = expressionText.substr(0, BareLength(parser.table, expressionText));
    }
    expressionText.remove_prefix(token.size());
    return token;
}

bool ParseExpression(ExpressionParser& parser, std::string_view& expressionText, bool checkOnly) {
    parser.errorText.Clear();
    if (!checkOnly) parser.output.Clear();
    OperatorStack stack(checkOnly ? nullptr : &parser.output);
    for (;;) {
        std::string_view token = NextToken(parser, expressionText);
        if (token.empty()) break;
        const OperatorEntry* entry = FindOperator(parser.table, token);
        if (entry == nullptr) {
            if (!IsQuote(token.front()) && !IsInteger(token)) {
                return Fail(parser, "Unknown operator: ", token);
            }
            stack.Emit(token);
            continue;
        }
        stack.EmitNotBelow(entry->inputPriority);
        if (entry->keyword != ")") {
            stack.Push(entry);
        } else if (!stack.CloseGroup()) {
            return Fail(parser, "Missing ", "(");
        }
    }
    if (!parser.errorText.Empty()) return false;
    stack.EmitAll();
    return true;
}

}  // namespace zot
