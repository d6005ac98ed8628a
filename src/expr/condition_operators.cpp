#include "expr/condition_operators.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <iterator>
#include <limits>
#include <string>

#include "expr/find_text.h"
#include "expr/number.h"
#include "expr/text_functions.h"

namespace zot {
namespace {

using Code = ConditionOperator::Code;

constexpr int64_t kLowest = std::numeric_limits<int64_t>::min();
constexpr int64_t kHighest = std::numeric_limits<int64_t>::max();
constexpr double kTwoTo63 = 9223372036854775808.0;
constexpr double kTolerance = 0.00001;

bool Fail(VyString& errorText, std::string_view operand, std::string_view message) {
    errorText = operand;
    errorText.Append(message);
    return false;
}

bool FailEvaluation(VyString& errorText) { return Fail(errorText, kConditionEvalError, {}); }

// A number that does not fit 64 bits fails, because a wrong one would raise or hide an alert. An
// index that does not fit counts as the largest one, where no text has a word.
bool RoundToInteger(double value, int64_t& rounded) {
    value = std::round(value);
    if (!(value >= -kTwoTo63 && value < kTwoTo63)) return false;  // or not a number at all
    rounded = static_cast<int64_t>(value);
    return true;
}

int64_t TruncateToIndex(double value) {
    if (value >= kTwoTo63) return kHighest;
    return value < -kTwoTo63 ? kLowest : static_cast<int64_t>(value);
}

bool ApplyNot(Code, ConditionValue& value, const ConditionValue&, VyString&) {
    value.SetFlag(value.Text() != "1");
    return true;
}

// The operands of logic and comparisons. Testing one for a number takes away its quotes. The right
// one is tested only if the left is a number, so 'x' and '0' is true: its first character is the
// quote.
struct TestedOperands {
    TestedOperands(const ConditionValue& leftValue, const ConditionValue& rightValue)
        : left(leftValue.Number()), leftText(Unquote(leftValue.Text())) {
        if (left) right = rightValue.Number();
        rightText = left ? Unquote(rightValue.Text()) : rightValue.Text();
    }
    bool AreNumbers() const { return left && right; }

    ConditionNumber left;
    ConditionNumber right;
    std::string_view leftText;
    std::string_view rightText;
};

// Whether a text is true, judged by its first character. An empty one has none that could be "0".
bool FirstIsTrue(std::string_view text) { return !text.starts_with('0'); }

template <typename T>
T Combine(Code code, T left, T right) {
    if (code == Code::kAnd) return left & right;
    return code == Code::kOr ? left | right : left ^ right;
}

bool ApplyLogic(Code code, ConditionValue& left, const ConditionValue& right, VyString& errorText) {
    TestedOperands operands(left, right);
    std::string_view leftText = operands.leftText;
    std::string_view rightText = operands.rightText;
    if (!operands.AreNumbers()) {
        left.SetFlag(Combine<int>(code, FirstIsTrue(leftText), FirstIsTrue(rightText)) != 0);
        return true;
    }
    int64_t leftBits = 0;
    int64_t rightBits = 0;
    if (!RoundToInteger(*operands.left, leftBits) || !RoundToInteger(*operands.right, rightBits)) {
        return FailEvaluation(errorText);
    }
    int64_t result = Combine(code, leftBits, rightBits);
    // A binary number is marked by its last letter, but '10 KB' ends with that letter too.
    if (leftText.ends_with('B') || rightText.ends_with('B')) {
        left.SetBinary(result);
    } else {
        left.SetInteger(result);
    }
    return true;
}

// "div" and "mod"; false where the quotient does not exist or does not fit 64 bits.
bool Divide(Code code, double left, double right, int64_t& result) {
    int64_t dividend = 0;
    int64_t divisor = 0;
    if (!RoundToInteger(left, dividend) || !RoundToInteger(right, divisor)) return false;
    if (divisor == 0 || (dividend == kLowest && divisor == -1)) return false;
    result = code == Code::kDiv ? dividend / divisor : dividend % divisor;
    return true;
}

bool Calculate(Code code, double left, double right, int64_t& result) {
    switch (code) {
        case Code::kAdd:
            return RoundToInteger(left + right, result);
        case Code::kSubtract:
            return RoundToInteger(left - right, result);
        case Code::kMultiply:
            return RoundToInteger(left * right, result);
        default:
            return Divide(code, left, right, result);
    }
}

bool ApplyArithmetic(Code code, ConditionValue& left, const ConditionValue& right,
                     VyString& errorText) {
    ConditionNumber leftNumber = left.Number();
    if (!leftNumber) return Fail(errorText, left.Text(), " is not a number");
    ConditionNumber rightNumber = right.Number();
    if (!rightNumber) return Fail(errorText, right.Text(), " is not a number");
    int64_t result = 0;
    if (!Calculate(code, *leftNumber, *rightNumber, result)) return FailEvaluation(errorText);
    left.SetInteger(result);
    return true;
}

// The right text keeps its quotes: 'error 404' in '404' is false, and conditions rely on that.
bool ApplyIn(Code, ConditionValue& left, const ConditionValue& right, VyString&) {
    left.SetFlag(FindText(Unquote(left.Text()), right.Text(), true, false) > 0);
    return true;
}

bool ApplyWord(Code code, ConditionValue& left, const ConditionValue& right, VyString& errorText) {
    ConditionNumber number = right.Number();
    // Without the "a" of the other message: servers show and match it like this.
    if (!number) return Fail(errorText, right.Text(), " is not number");
    int64_t index = TruncateToIndex(*number);
    std::string_view text = Unquote(left.Text());
    if (code == Code::kGetWord) {
        left.Set(NthWord(text, index));
    } else if (code == Code::kEndWord) {
        left.Set(NthWordFromEnd(text, index));
    } else {
        bool doubledQuotes = false;
        char separator = code == Code::kTsvField ? '\t' : ',';
        left.Set(DelimitedField(text, index, separator, doubledQuotes));
        if (doubledQuotes) left.SetUndoubled(left.Text());
    }
    return true;
}

bool ApplyNumber(Code code, ConditionValue& left, const ConditionValue& right,
                 VyString& errorText) {
    ConditionNumber number = right.Number();
    if (!number) return Fail(errorText, right.Text(), " is not a number");
    int64_t index = TruncateToIndex(*number);
    bool comma = code == Code::kGetNumberWithComma;
    char point = comma ? ',' : code == Code::kGetNumberWithDot ? '.' : '-';
    left.Set(NthNumber(Unquote(left.Text()), index, point));
    if (comma && left.Text().find(',') != std::string_view::npos) {
        left.SetReplaced(left.Text(), ',', '.');
    }
    return true;
}

bool CompareNumbers(Code code, double left, double right) {
    switch (code) {
        case Code::kGreater:
            return left - right > kTolerance;
        case Code::kLess:
            return right - left > kTolerance;
        case Code::kEqual:
            return std::fabs(left - right) < kTolerance;
        case Code::kNotEqual:
            return std::fabs(left - right) > kTolerance;
        case Code::kNotLess:
            return left - right >= 0;
        default:
            return right - left >= 0;
    }
}

std::string_view UpToNul(std::string_view text) { return text.substr(0, text.find('\0')); }

bool CompareTexts(Code code, std::string_view left, std::string_view right) {
    int order = UpToNul(left).compare(UpToNul(right));  // by unsigned bytes
    switch (code) {
        case Code::kGreater:
            return order > 0;
        case Code::kLess:
            return order < 0;
        case Code::kEqual:
            return order == 0;
        case Code::kNotEqual:
            return order != 0;
        case Code::kNotLess:
            return order >= 0;
        default:
            return order <= 0;
    }
}

bool ApplyComparison(Code code, ConditionValue& left, const ConditionValue& right, VyString&) {
    TestedOperands operands(left, right);
    if (operands.AreNumbers()) {
        left.SetFlag(CompareNumbers(code, *operands.left, *operands.right));
    } else {
        // Texts lose a second pair of quotes here, so "'a'" == 'a' is true although 'a' == "'a'" is
        // not.
        left.SetFlag(CompareTexts(code, Unquote(operands.leftText), Unquote(operands.rightText)));
    }
    return true;
}

constexpr ConditionOperator kOperators[] = {
    {"not", Code::kNot, ApplyNot},
    {"and", Code::kAnd, ApplyLogic},
    {"or", Code::kOr, ApplyLogic},
    {"xor", Code::kXor, ApplyLogic},
    {"div", Code::kDiv, ApplyArithmetic},
    {"mod", Code::kMod, ApplyArithmetic},
    {"+", Code::kAdd, ApplyArithmetic},
    {"-", Code::kSubtract, ApplyArithmetic},
    {"*", Code::kMultiply, ApplyArithmetic},
    {"in", Code::kIn, ApplyIn},
    {"getword", Code::kGetWord, ApplyWord},
    {"endword", Code::kEndWord, ApplyWord},
    {"tsvfield", Code::kTsvField, ApplyWord},
    {"csvfield", Code::kCsvField, ApplyWord},
    {"getnumberwithdot", Code::kGetNumberWithDot, ApplyNumber},
    {"getnumberwithcomma", Code::kGetNumberWithComma, ApplyNumber},
    {"getnumber", Code::kGetNumber, ApplyNumber},
    {"<", Code::kLess, ApplyComparison},
    {">", Code::kGreater, ApplyComparison},
    {">=", Code::kNotLess, ApplyComparison},
    {"<=", Code::kNotGreater, ApplyComparison},
    {"==", Code::kEqual, ApplyComparison},
    {"<>", Code::kNotEqual, ApplyComparison},
};
constexpr size_t kLongestSpelling = std::string_view("getnumberwithcomma").size();

}  // namespace

ConditionNumber ReadConditionNumber(std::string_view text) noexcept {
    double value = 0;
    return ParseNumber(text, value) != 0 ? ConditionNumber(value) : std::nullopt;
}

void ConditionValue::SetInteger(int64_t number) noexcept {
    char* end = std::to_chars(digits_.data(), digits_.data() + digits_.size(), number).ptr;
    Set({digits_.data(), static_cast<size_t>(end - digits_.data())});
}

void ConditionValue::SetBinary(int64_t number) {
    char digits[64];
    char* end = std::to_chars(digits, digits + sizeof digits, static_cast<uint64_t>(number), 2).ptr;
    built_ = std::string_view(digits, static_cast<size_t>(end - digits));
    built_.Append('B');
    Set(built_);
}

void ConditionValue::SetReplaced(std::string_view text, char from, char to) {
    built_ = text;
    std::replace(built_.Data(), built_.Data() + built_.Length(), from, to);
    Set(built_);
}

void ConditionValue::SetUndoubled(std::string_view text) {
    built_ = text;
    char* out = built_.Data();
    for (int32_t i = 1; i <= built_.Length(); ++i) {
        *out++ = built_.At(i);
        if (built_.At(i) == '"') ++i;
    }
    built_.Cut(static_cast<int32_t>(out - built_.Data()));
    Set(built_);
}

const ConditionOperator* FindConditionOperator(std::string_view token) noexcept {
    if (token.empty() || token.size() > kLongestSpelling) return nullptr;
    auto found = std::find_if(std::begin(kOperators), std::end(kOperators),
                              [&](const ConditionOperator& row) { return row.spelling == token; });
    return found == std::end(kOperators) ? nullptr : found;
}

}  // namespace zot
