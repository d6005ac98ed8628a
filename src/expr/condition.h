// The condition language: a text-valued expression that decides whether a line of a log raises an
// alert.
#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

#include "base/vystring.h"
#include "base/vystring_list.h"
#include "expr/condition_operators.h"
#include "expr/expression_parser.h"

namespace zot {

// A parsed condition prepared for many lines. Its stack is allocated once, when it is needed; a
// line is never copied. One thread at a time.
class ConditionProgram {
  public:
    // REQUIRES: `postfix` outlives the program and is not changed.
    explicit ConditionProgram(const VyStringList& postfix);

    // Whether the condition is true for the line, which replaces every operand that reads %data%
    // within its quotes. On failure returns false with a message in `errorText`, which is empty
    // otherwise. The line is inserted unchanged, so a line that spells an operator is one.
    bool Evaluate(std::string_view line, VyString& errorText) { return Run(&line, errorText); }
    // Evaluate without the message, so that a line that cannot be true costs nothing.
    bool IsTrueOf(std::string_view line);
    // Evaluate with such operands left unchanged.
    bool Evaluate(VyString& errorText) { return Run(nullptr, errorText); }

  private:
    struct Step {
        std::string_view text;
        const ConditionOperator* operation;  // null: an operand
        ConditionNumber number;              // of the text, so that no line pays for reading it
        bool isLine;
    };

    bool Run(const std::string_view* line, VyString& errorText);
    bool RunSteps(const std::string_view* line, VyString& errorText);

    std::vector<Step> steps_;
    // Whether each operator finds its operands and one value is left; if not, no line is true,
    // unless it spells an operator.
    bool wellFormed_ = true;
    size_t deepest_ = 0;
    std::vector<ConditionValue> stack_;  // at its largest from the start: its values do not move
    VyString ignored_;
};

}  // namespace zot
