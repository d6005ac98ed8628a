#include "expr/condition.h"

#include <algorithm>
#include <cstdint>
#include <exception>
#include <string>

#include "expr/operator_table.h"
#include "expr/text_functions.h"

namespace zot {
namespace {

bool FailWith(VyString& errorText, std::string_view message) {
    errorText = message;
    return false;
}

size_t OperandCount(const ConditionOperator& operation) { return operation.IsUnary() ? 1 : 2; }

bool Finish(const std::vector<ConditionValue>& stack, size_t depth, VyString& errorText) {
    if (depth != 1) return FailWith(errorText, "invalid expression");
    std::string_view result = stack[0].Text();
    if (result == "1") return true;
    if (result == "0") return false;
    errorText = "invalid result ";
    errorText.Append(result);
    return false;
}

}  // namespace

ConditionProgram::ConditionProgram(const VyStringList& postfix) {
    steps_.reserve(static_cast<size_t>(postfix.Count()));
    size_t depth = 0;
    for (int32_t i = 0; i < postfix.Count(); ++i) {
        std::string_view token = postfix.ItemView(i);
        const ConditionOperator* operation = FindConditionOperator(token);
        steps_.push_back(
            {token, operation, ReadConditionNumber(token), Unquote(token) == "%data%"});
        if (operation == nullptr) {
            deepest_ = std::max(deepest_, ++depth);
        } else {
            wellFormed_ = wellFormed_ && depth >= OperandCount(*operation);
            if (!operation->IsUnary() && depth > 0) --depth;
        }
    }
    wellFormed_ = wellFormed_ && depth == 1;
}

bool ConditionProgram::IsTrueOf(std::string_view line) {
    if (!wellFormed_ && FindConditionOperator(line) == nullptr) return false;
    return Evaluate(line, ignored_);
}

bool ConditionProgram::Run(const std::string_view* line, VyString& errorText) {
    errorText.Clear();
    try {
        return RunSteps(line, errorText);
    } catch (const std::exception&) {
        return FailWith(errorText, kConditionEvalError);
    }
}

bool ConditionProgram::RunSteps(const std::string_view* line, VyString& errorText) {
    const ConditionOperator* lineOperation = line ? FindConditionOperator(*line) : nullptr;
    stack_.resize(deepest_);
    size_t depth = 0;
    for (const Step& step : steps_) {
        bool isLine = step.isLine && line != nullptr;
        const ConditionOperator* operation = isLine ? lineOperation : step.operation;
        if (operation == nullptr) {
            isLine ? stack_[depth].Set(*line) : stack_[depth].Set(step.text, &step.number);
            ++depth;
            continue;
        }
        size_t operands = OperandCount(*operation);
        if (depth < operands) return FailWith(errorText, kConditionEvalError);
        const ConditionValue& right = stack_[depth - 1];
        if (operands == 2) --depth;
        if (!operation->apply(operation->code, stack_[depth - 1], right, errorText)) return false;
    }
    return Finish(stack_, depth, errorText);
}

}  // namespace zot
