#include "expr/search.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <utility>

#include "expr/operator_table.h"

namespace zot {
namespace {

// A token without its quotes. An integer is an operand too and loses its first and last digit.
std::string_view WithoutEnds(std::string_view token) {
    return token.size() < 2 ? std::string_view() : token.substr(1, token.size() - 2);
}

}  // namespace

SearchProgram::SearchProgram(const VyStringList& postfix, bool caseSensitive, bool wholeWord) {
    Compile(postfix);
    if (steps_.empty()) return;
    for (int32_t i = 0; i < postfix.Count(); ++i) {
        Step& step = steps_[static_cast<size_t>(i)];
        if (step.operation != Operation::kFind) continue;
        step.pattern = patterns_.size();
        patterns_.emplace_back(WithoutEnds(postfix.ItemView(i)), caseSensitive, wholeWord);
    }
}

SearchProgram::Operation SearchProgram::OperationOf(std::string_view token) {
    if (token == "not") return Operation::kNot;
    if (token == "or") return Operation::kOr;
    if (token == "and") return Operation::kAnd;
    return Operation::kFind;
}

// How many values the stack holds does not depend on the line, so missing or left-over values are
// found here, once.
void SearchProgram::Compile(const VyStringList& postfix) {
    std::vector<Step> steps;
    std::vector<size_t> starts;  // of each value on the stack, the step that begins it
    size_t deepest = 0;
    for (int32_t i = 0; i < postfix.Count(); ++i) {
        Operation operation = OperationOf(postfix.ItemView(i));
        steps.push_back({operation});
        if (operation == Operation::kFind) {
            starts.push_back(steps.size() - 1);
            deepest = std::max(deepest, starts.size());
            continue;
        }
        if (starts.size() < (operation == Operation::kNot ? 1U : 2U)) return;
        if (operation == Operation::kNot) continue;
        Step& right = steps[starts.back()];
        right.decisive = operation == Operation::kOr;
        right.skipTo = steps.size();
        starts.pop_back();
    }
    if (starts.size() != 1) return;
    steps_ = std::move(steps);
    stack_.resize(deepest);
}

bool SearchProgram::Matches(std::string_view line) {
    if (steps_.empty()) return false;
    size_t depth = 0;
    for (size_t i = 0; i < steps_.size();) {
        const Step& step = steps_[i];
        if (step.skipTo != 0 && (stack_[depth - 1] != 0) == step.decisive) {
            i = step.skipTo;
            continue;
        }
        if (step.operation == Operation::kFind) {
            stack_[depth++] = patterns_[step.pattern].Find(line) > 0;
        } else if (step.operation == Operation::kNot) {
            stack_[depth - 1] ^= 1;
        } else {
            // The left value did not decide, so the right one is the result.
            --depth;
            stack_[depth - 1] = stack_[depth];
        }
        ++i;
    }
    return stack_[0] != 0;
}

}  // namespace zot
