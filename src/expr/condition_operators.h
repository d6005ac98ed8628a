// The operators of the condition language: they turn texts into a text. Every value is a text; each
// operator reads numbers from texts and writes them back.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

#include "base/vystring.h"

namespace zot {

// The number that a text spells; empty when it is not one.
using ConditionNumber = std::optional<double>;

ConditionNumber ReadConditionNumber(std::string_view text) noexcept;

// A place on the evaluation stack. Whatever an operator must build is kept in the place itself,
// which therefore does not move in memory while its text is in use.
class ConditionValue {
  public:
    std::string_view Text() const noexcept { return text_; }
    // The text as a number, read now unless it was read before.
    ConditionNumber Number() const noexcept {
        return number_ != nullptr ? *number_ : ReadConditionNumber(text_);
    }
    // Makes the value a text that lives elsewhere (or is part of the value itself). `number` is the
    // result of ReadConditionNumber for it, where that is known, and lives as long as the text.
    void Set(std::string_view text, const ConditionNumber* number = nullptr) noexcept {
        text_ = text;
        number_ = number;
    }
    void SetFlag(bool flag) noexcept { Set(flag ? "1" : "0"); }
    void SetInteger(int64_t number) noexcept;
    // Binary digits and a "B". A negative number shows all 64 digits of its two's complement.
    void SetBinary(int64_t number);
    // Sets a copy with one character replaced by another.
    void SetReplaced(std::string_view text, char from, char to);
    // Sets a copy with every two double quotes replaced by one.
    void SetUndoubled(std::string_view text);

  private:
    std::string_view text_;
    const ConditionNumber* number_ = nullptr;
    std::array<char, 24> digits_;
    VyString built_;
};

// A row of the operators' table.
struct ConditionOperator {
    enum class Code : uint8_t {
        kNot,
        kAnd,
        kOr,
        kXor,
        kDiv,
        kMod,
        kAdd,
        kSubtract,
        kMultiply,
        kIn,
        kGetWord,
        kEndWord,
        kTsvField,
        kCsvField,
        kGetNumber,
        kGetNumberWithDot,
        kGetNumberWithComma,
        kLess,
        kGreater,
        kNotLess,
        kNotGreater,
        kEqual,
        kNotEqual,
    };

    std::string_view spelling;
    Code code;
    // Puts the result in the place of the left value; false, with the error text set, on failure.
    // "not" gets the value that it changes on both sides.
    bool (*apply)(Code code, ConditionValue& left, const ConditionValue& right,
                  VyString& errorText);

    bool IsUnary() const noexcept { return code == Code::kNot; }
};

// The message of all failures without one of their own: missing operands, divisions by zero,
// results that no 64-bit integer holds, exhausted memory.
inline constexpr std::string_view kConditionEvalError = "ConditionEval error";

// The operator that a postfix token spells exactly, or null when the token is an operand.
const ConditionOperator* FindConditionOperator(std::string_view token) noexcept;

}  // namespace zot
