#include "expr/condition_operators.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>

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

int Fail(VyString& errorText, std::string_view operand, std::string_view message) {
    errorText = operand;
    errorText.Append(message);
    return 0;
}

int FailEvaluation(VyString& errorText) { return Fail(errorText, kConditionEvalError, {}); }

// What does not fit 64 bits: a number that is calculated with fails, as a silently wrong one would
// raise or hide an alert; an index is as good as the largest one, where no text has a word.
bool RoundToInteger(double value, int64_t& rounded) {
    value = std::round(value);
    if (!(value >= -kTwoTo63 && value < kTwoTo63)) return false;  // also what is not a number
    rounded = static_cast<int64_t>(value);
    return true;
}

int64_t TruncateToIndex(double value) {
    if (value >= kTwoTo63) return kHighest;
    return value < -kTwoTo63 ? kLowest : static_cast<int64_t>(value);
}

int ApplyNot(Code, ConditionValue& value, std::string_view, VyString&) {
    value.SetFlag(value.Text() != "1");
    return 1;
}

// Whether a text is true by its first character. An empty one has none that could be "0".
bool FirstIsTrue(std::string_view text) { return !text.starts_with('0'); }

template <typename T>
T Combine(Code code, T left, T right) {
    if (code == Code::kAnd) return left & right;
    return code == Code::kOr ? left | right : left ^ right;
}

int ApplyLogic(Code code, ConditionValue& left, std::string_view right, VyString& errorText) {
    double leftNumber = 0;
    double rightNumber = 0;
    // Each operand that is tested for a number loses its quotes by that. The right one is tested
    // only behind a number, so that 'x' and '0' is true: its first character is the quote.
    std::string_view leftText = Unquote(left.Text());
    bool numbers = ParseNumber(leftText, leftNumber) != 0;
    std::string_view rightText = numbers ? Unquote(right) : right;
    numbers = numbers && ParseNumber(rightText, rightNumber) != 0;
    // A lone 0 or 1 on both sides gives the same by bits as by truth.
    if (!numbers) {
        left.SetFlag(Combine<int>(code, FirstIsTrue(leftText), FirstIsTrue(rightText)) != 0);
        return 1;
    }
    int64_t leftBits = 0;
    int64_t rightBits = 0;
    if (!RoundToInteger(leftNumber, leftBits) || !RoundToInteger(rightNumber, rightBits)) {
        return FailEvaluation(errorText);
    }
    int64_t result = Combine(code, leftBits, rightBits);
    // The mark of a binary number is its last letter, which '10 KB' has as well.
    if (leftText.ends_with('B') || rightText.ends_with('B')) {
        left.SetBinary(result);
    } else {
        left.SetInteger(result);
    }
    return 1;
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

int ApplyArithmetic(Code code, ConditionValue& left, std::string_view right, VyString& errorText) {
    double leftNumber = 0;
    double rightNumber = 0;
    if (ParseNumber(left.Text(), leftNumber) == 0) {
        return Fail(errorText, left.Text(), " is not a number");
    }
    if (ParseNumber(right, rightNumber) == 0) return Fail(errorText, right, " is not a number");
    int64_t result = 0;
    if (!Calculate(code, leftNumber, rightNumber, result)) return FailEvaluation(errorText);
    left.SetInteger(result);
    return 1;
}

// The right text keeps its quotes: 'error 404' in '404' is false, and conditions rely on it.
int ApplyIn(Code, ConditionValue& left, std::string_view right, VyString&) {
    left.SetFlag(FindText(Unquote(left.Text()), right, true, false) > 0);
    return 1;
}

int ApplyWord(Code code, ConditionValue& left, std::string_view right, VyString& errorText) {
    double number = 0;
    // Without the "a" of the other message: the server shows and matches it so.
    if (ParseNumber(right, number) == 0) return Fail(errorText, right, " is not number");
    int64_t index = TruncateToIndex(number);
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
    return 1;
}

int ApplyNumber(Code code, ConditionValue& left, std::string_view right, VyString& errorText) {
    double number = 0;
    if (ParseNumber(right, number) == 0) return Fail(errorText, right, " is not a number");
    int64_t index = TruncateToIndex(number);
    bool comma = code == Code::kGetNumberWithComma;
    char point = comma ? ',' : code == Code::kGetNumberWithDot ? '.' : '-';
    left.Set(NthNumber(Unquote(left.Text()), index, point));
    if (comma && left.Text().find(',') != std::string_view::npos) {
        left.SetReplaced(left.Text(), ',', '.');
    }
    return 1;
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

int ApplyComparison(Code code, ConditionValue& left, std::string_view right, VyString&) {
    double leftNumber = 0;
    double rightNumber = 0;
    // As in ApplyLogic, testing takes the quotes off; a comparison of texts then takes off a
    // second pair, so that "'a'" == 'a' is true although 'a' == "'a'" is not.
    std::string_view leftText = Unquote(left.Text());
    bool numbers = ParseNumber(leftText, leftNumber) != 0;
    std::string_view rightText = numbers ? Unquote(right) : right;
    numbers = numbers && ParseNumber(rightText, rightNumber) != 0;
    left.SetFlag(numbers ? CompareNumbers(code, leftNumber, rightNumber)
                         : CompareTexts(code, Unquote(leftText), Unquote(rightText)));
    return 1;
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

void ConditionValue::SetInteger(int64_t number) noexcept {
    char* end = std::to_chars(digits_.data(), digits_.data() + digits_.size(), number).ptr;
    text_ = {digits_.data(), static_cast<size_t>(end - digits_.data())};
}

void ConditionValue::SetBinary(int64_t number) {
    char digits[64];
    char* end = std::to_chars(digits, digits + sizeof digits, static_cast<uint64_t>(number), 2).ptr;
    built_ = std::string_view(digits, static_cast<size_t>(end - digits));
    built_.Append('B');
    text_ = built_;
}

void ConditionValue::SetReplaced(std::string_view text, char from, char to) {
    built_ = text;
    std::replace(built_.Data(), built_.Data() + built_.Length(), from, to);
    text_ = built_;
}

void ConditionValue::SetUndoubled(std::string_view text) {
    built_ = text;
    char* out = built_.Data();
    for (int32_t i = 1; i <= built_.Length(); ++i) {
        *out++ = built_.At(i);
        if (built_.At(i) == '"') ++i;
    }
    built_.Cut(static_cast<int32_t>(out - built_.Data()));
    text_ = built_;
}

const ConditionOperator* FindConditionOperator(std::string_view token) noexcept {
    if (token.empty() || token.size() > kLongestSpelling) return nullptr;
    auto found = std::find_if(std::begin(kOperators), std::end(kOperators),
                              [&](const ConditionOperator& row) { return row.spelling == token; });
    return found == std::end(kOperators) ? nullptr : found;
}

}  // namespace zot
