// The condition language: a text-valued expression that decides whether a line of a log raises an
// alert.
#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

#include "base/vystring.h"
#include "expr/condition_operators.h"
#include "expr/expression_parser.h"

namespace zot {

// A parsed condition made ready for many lines. Its stack is allocated once, when it is needed; a
// line is never copied. One thread at a time.
class ConditionProgram {
  public:
    // REQUIRES: `postfix` outlives the program and is not changed.
    explicit ConditionProgram(const VyStringList& postfix);

    // Tells whether the condition is true of the line, which stands in the place of every operand
    // that reads %data% within its quotes. False with a message in `errorText` on failure, with an
    // empty `errorText` otherwise. The line is put there unchanged, so that a line which spells
    // an operator is one.
    bool Evaluate(std::string_view line, VyString& errorText) { return Run(&line, errorText); }
    // Evaluate without the message, for which nothing is done on a line that cannot be true.
    bool IsTrueOf(std::string_view line);
    // Evaluate with such operands left as they are.
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
    // Whether each operator finds its operands and one value is left; else no line is true, unless
    // it spells an operator.
    bool wellFormed_ = true;
    size_t deepest_ = 0;
    std::vector<ConditionValue> stack_;  // as large as it ever gets: its values do not move
    VyString ignored_;
};

}  // namespace zot
