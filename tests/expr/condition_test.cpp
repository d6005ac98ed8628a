#include "expr/condition.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "expr/number.h"

namespace zot {
namespace {

// The message of an expression, or "1" or "0" where it has none.
std::string Outcome(bool result, const VyString& errorText) {
    if (result) return errorText.Empty() ? "1" : "true with a message";
    return errorText.Empty() ? "0" : std::string(errorText.View());
}

std::string Outcome(std::string_view expression) {
    VyString errorText("old");
    bool result = EvaluateConditionText(expression, errorText);
    return Outcome(result, errorText);
}

// What the expression leaves on the stack, shown by a message that holds it.
std::string ValueOf(const std::string& expression) {
    std::string shown = Outcome(expression);
    constexpr std::string_view kMessage = "invalid result ";
    return shown.starts_with(kMessage) ? shown.substr(kMessage.size()) : shown;
}

TEST(Condition, Operators) {
    struct {
        std::string expression;
        std::string value;
    } cases[] = {
        // comparison
        {"'5' > '10'", "0"},
        {"'abc' > 'abd'", "0"},
        {"'1.000001' == 1", "1"},
        {"'1.000001' >= 1", "1"},
        {"'0.999999' >= 1", "0"},
        {"'0.999999' <> 1", "0"},
        {"'1.000001' > 1", "0"},
        {"'1.00002' <> 1", "1"},
        {"'10 kb' == 10240", "1"},
        {"'10 KB' == 10240", "1"},
        {"'10 xb' == 10", "0"},
        {"'a' <> 'A'", "1"},
        {"'\xE4' > 'z'", "1"},
        {"'b' >= 'a' and 'a' <= 'a'", "1"},
        {std::string("'ab\0c' == 'ab\0d'", 17), "1"},  // texts end at a NUL
        {"\"'abc'\" == 'abc'", "1"},                   // the left side loses two pairs of quotes
        {"'abc' == \"'abc'\"", "0"},                   // the right side only behind a number
        {"1 == \"'1'\"", "1"},
        {"'' == ''", "1"},
        // logic
        {"'x' and 1", "1"},
        {"'0x' and 1", "0"},
        {"'x' and '0'", "1"},  // the untested right side still begins with its quote
        {"'0' and 'x'", "0"},
        {"'x' and 0", "0"},
        {"'0y' or '0'", "1"},
        {"'' or 0", "1"},
        {"3 or 4", "7"},
        {"'-2.5' or 0", "-3"},
        {"'1100B' or '1B'", "1101B"},
        {"'10 KB' or 1", "10100000000001B"},  // ends with "B" as well
        {"'-1' and '1B'", "1B"},
        {"'-1' or '1B'", std::string(64, '1') + "B"},
        {"not 5", "1"},
        {"not '1'", "1"},
        // arithmetic
        {"'7.5' + 1", "9"},
        {"'0.4' + '0.4'", "1"},
        {"0 - '2.5'", "-3"},
        {"7 div 2", "3"},
        {"'-7' div 2", "-3"},
        {"'-7' mod 4", "-3"},
        {"7 mod '-4'", "3"},
        {"'6.5' div '1.5'", "3"},
        {"2 * '1 kb' - 48", "2000"},
        {"0 - '9223372036854775808'", "-9223372036854775808"},
        {"1 + 'x'", "'x' is not a number"},
        {"'a' + 'x'", "'a' is not a number"},
        // containment
        {"'error 404' in 404", "1"},
        {"'error 404' in '404'", "0"},
        {"\"say '404'\" in '404'", "1"},
        {"'a' in ('' getword 1)", "0"},
        {"'xAy' in ('a' getword 1)", "0"},
        // words and fields
        {"'\ta\r\nb  c ' getword '2.9'", "b"},
        {"'a b c' getword 4", ""},
        {"'a b c' getword 0", ""},
        {"'a b c' endword 1", "c"},
        {"'a b c ' endword 3", "a"},
        {"'a b c' endword 4", ""},
        {"'a b c' endword '-9223372036854775808'", ""},
        {"'a b' getword 99999999999999999999", ""},
        {"'a b' endword 99999999999999999999", ""},
        {"'a b' getword 'x'", "'x' is not number"},
        {"'a b' csvfield 'x'", "'x' is not number"},
        {"'a\tb\t\td' tsvfield 3", ""},
        {"'a\tb\t\td' tsvfield 4", "d"},
        {"'a,b' csvfield 0", ""},
        {"'a, b,c' csvfield 2", " b"},
        {"'x,\"a,b\",c' csvfield 2", "a,b"},
        {"'x,\"a\"\"b\"\"\",c' csvfield 2", "a\"b\""},
        {"'x,\"\"\"\"\"\",c' csvfield 2", "\"\""},
        {"'x,\"a,b' csvfield 2", "a,b"},
        {"'x,a\"b,c\"' csvfield 3", "c\""},
        {"'x,\"a\" b,c' csvfield 2", "a"},
        {"('x,\"1 \"\"2,5\"\" 3\"' csvfield 2) getnumberwithcomma 2", "2.5"},
        // numbers
        {"'Free: 1,234 MB of 2,000' getnumberwithcomma 2", "2.000"},
        {"'temp=-5C' getnumber 1", "-5"},
        {"'10-20' getnumber 1", "10"},
        {"'10-20' getnumber 2", "20"},
        {"'v 1.25,' getnumberwithdot 1", "1.25"},
        {"'a - 5' getnumber 1", "5"},
        {"'--5' getnumber 2", "5"},
        {"'-' getnumber 1", ""},
        {"'12 34 -' getnumber 1", ""},  // the last minus eats the text before it
        {"'12 34-' getnumber 2", "34"},
        {"'5' getnumber 'x'", "'x' is not a number"},
        // the end
        {"3", "3"},
        {"'1'", "'1'"},
        {"1 2", "invalid expression"},
        {"", "invalid expression"},
        {"(1 == 1", "invalid expression"},
        {"'unterminated", "old"},  // no evaluation, no message
        // what has no message of its own
        {"+ 1", "ConditionEval error"},
        {"-5", "ConditionEval error"},
        {"not", "ConditionEval error"},
        {"1 div 0", "ConditionEval error"},
        {"1 mod '0.4'", "ConditionEval error"},
        {"'-9223372036854775808' div '-1'", "ConditionEval error"},
        {"'-9223372036854775808' mod '-1'", "ConditionEval error"},
        {"9223372036854775807 + 1", "ConditionEval error"},
        {"99999999999999999999 div 1", "ConditionEval error"},
        {"99999999999999999999 or 1", "ConditionEval error"},
        {std::string(400, '9') + " - " + std::string(400, '9'), "ConditionEval error"},
        {std::string(400, '9') + " == " + std::string(400, '9'), "0"},
    };
    for (const auto& c : cases) EXPECT_EQ(ValueOf(c.expression), c.value) << c.expression;
}

std::string OnLine(std::string_view expression, std::string_view line) {
    ExpressionParser parser(ConditionOperatorTable);
    EXPECT_EQ(ParseExpression(parser, expression, false), 1);
    VyString errorText;
    ConditionProgram program(parser.output);
    bool result = program.Evaluate(line, errorText);
    return Outcome(result, errorText);
}

TEST(Condition, TheLineStandsForItsMark) {
    EXPECT_EQ(OnLine("'%data%' getnumber 3 > 500", "a 1 b 2 c 501 d"), "1");
    EXPECT_EQ(OnLine("\"%data%\" in 404 and '%data%' endword 1 == 'x'", "404 x"), "1");
    EXPECT_EQ(OnLine("'%data% ' == 'x'", "x"), "0");
    EXPECT_EQ(OnLine("'%DATA%' == 'x'", "x"), "0");
    EXPECT_EQ(OnLine("'%data%' == 'x'", "'x'"), "1");
    EXPECT_EQ(OnLine("'%data%' + 1", "x"), "x is not a number");
    EXPECT_EQ(OnLine("'%data%' == '-'", "-"), "ConditionEval error");  // the line is an operator
    EXPECT_EQ(OnLine("7 5 '%data%' == 2", "-"), "1");
    EXPECT_EQ(Outcome("'%data%' == '%data%'"), "1");
}

// The evaluator as the language describes it: texts on a stack, every step on copies.
class SlowEvaluator {
  public:
    static std::string Evaluate(const std::vector<std::string>& postfix) {
        std::vector<std::string> stack;
        for (const std::string& token : postfix) {
            static const std::set<std::string> kOperators = {"not",
                                                             "and",
                                                             "or",
                                                             "xor",
                                                             "div",
                                                             "mod",
                                                             "in",
                                                             "+",
                                                             "-",
                                                             "*",
                                                             "<",
                                                             ">",
                                                             ">=",
                                                             "<=",
                                                             "==",
                                                             "<>",
                                                             "getword",
                                                             "endword",
                                                             "tsvfield",
                                                             "csvfield",
                                                             "getnumber",
                                                             "getnumberwithdot",
                                                             "getnumberwithcomma"};
            if (!kOperators.contains(token)) {
                stack.push_back(token);
                continue;
            }
            if (stack.size() < (token == "not" ? 1u : 2u)) return "ConditionEval error";
            std::string right = stack.back();
            stack.pop_back();
            if (token == "not") {
                stack.push_back(right == "1" ? "0" : "1");
                continue;
            }
            std::string error = Apply(token, stack.back(), right);
            if (!error.empty()) return error;
        }
        if (stack.size() != 1) return "invalid expression";
        return stack[0] == "0" || stack[0] == "1" ? stack[0] : "invalid result " + stack[0];
    }

  private:
    static void Unquote(std::string& s) {
        if (s.size() >= 2 && (s[0] == '"' || s[0] == '\'') && s.back() == s[0]) {
            s = s.substr(1, s.size() - 2);
        }
    }
    static bool Number(std::string& text, double& value) {
        Unquote(text);
        return ParseNumber(text, value) != 0;
    }
    static bool Round(double value, int64_t& rounded) {
        bool fits = std::fabs(value) < 9e18;
        rounded = fits ? std::llround(value) : 0;
        return fits;
    }
    static std::vector<std::string> Words(const std::string& text, const char* separators) {
        std::vector<std::string> words;
        for (size_t end = 0, at; (at = text.find_first_not_of(separators, end)) != text.npos;) {
            end = std::min(text.find_first_of(separators, at), text.size());
            words.push_back(text.substr(at, end - at));
        }
        return words;
    }
    static std::string Item(const std::vector<std::string>& items, int64_t n) {
        return n >= 1 && n <= std::ssize(items) ? items[static_cast<size_t>(n) - 1] : "";
    }

    static std::string Apply(const std::string& op, std::string& left, const std::string& right) {
        std::string l = left, r = right;
        double a = 0, b = 0;
        if (op == "in") {
            Unquote(l);
            left = !r.empty() && l.find(r) != std::string::npos ? "1" : "0";
        } else if (op.size() > 3) {
            if (!Number(r, b))
                return right + (op[3] == 'n' ? " is not a number" : " is not number");
            Unquote(l);
            left = Extract(op, l, static_cast<int64_t>(b));
        } else if (op == "and" || op == "or" || op == "xor") {
            left = Logic(op, l, r);
            if (left.empty()) return "ConditionEval error";
        } else if (std::strchr("<>=", op[0]) != nullptr) {
            left = Compare(op, l, r) ? "1" : "0";
        } else {
            if (!Number(l, a)) return left + " is not a number";
            if (!Number(r, b)) return right + " is not a number";
            int64_t x = 0, y = 0;
            if (op == "div" || op == "mod") {
                if (!Round(a, x) || !Round(b, y) || y == 0) return "ConditionEval error";
                left = std::to_string(op == "div" ? x / y : x % y);
            } else {
                if (!Round(op == "+" ? a + b : op == "-" ? a - b : a * b, x)) {
                    return "ConditionEval error";
                }
                left = std::to_string(x);
            }
        }
        return "";
    }

    static std::string Logic(const std::string& op, std::string l, std::string r) {
        double a = 0, b = 0;
        bool truth = !Number(l, a) || !Number(r, b);
        int64_t x = l[0] != '0', y = r[0] != '0';
        if (!truth && (!Round(a, x) || !Round(b, y))) return "";
        int64_t result = op == "and" ? x & y : op == "or" ? x | y : x ^ y;
        if (truth || (l.back() != 'B' && r.back() != 'B')) return std::to_string(result);
        std::string digits;
        do digits.insert(0, 1, static_cast<char>('0' + (result & 1)));
        while ((result = static_cast<int64_t>(static_cast<uint64_t>(result) >> 1)) != 0);
        return digits + "B";
    }

    static bool Compare(const std::string& op, std::string l, std::string r) {
        double a = 0, b = 0;
        if (Number(l, a) && Number(r, b)) {
            if (op == ">=") return a - b >= 0;
            if (op == "<=") return b - a >= 0;
            if (op.size() == 1) return (op == ">" ? a - b : b - a) > 0.00001;
            return op == "==" ? std::fabs(a - b) < 0.00001 : std::fabs(a - b) > 0.00001;
        }
        Unquote(l);
        Unquote(r);
        int order = std::strcmp(l.c_str(), r.c_str());
        return (order > 0 && (op == ">" || op == ">=" || op == "<>")) ||
               (order < 0 && (op == "<" || op == "<=" || op == "<>")) ||
               (order == 0 && (op == "==" || op == "<=" || op == ">="));
    }

    static std::string Extract(const std::string& op, std::string t, int64_t n) {
        std::vector<std::string> words = Words(t, " \t\r\n");
        if (op == "getword") return Item(words, n);
        if (op == "endword") return Item(words, std::ssize(words) - n + 1);
        char point = op.ends_with("dot") ? '.' : op.ends_with("comma") ? ',' : '-';
        for (char& c : t) c = std::strchr("0123456789-", c) || c == point ? c : ' ';
        for (size_t i = 0; i + 1 < t.size(); ++i) {
            if (t[i] == '-' && t[i + 1] == ' ') t[i] = ' ';
        }
        for (size_t i = 1; i < t.size(); ++i) {
            if (t[i] == '-' && t[i - 1] != ' ') t[i] = ' ';
        }
        while (t.ends_with('-')) {
            if (t.size() == 1) return "";
            t.erase(t.size() - 2, 1);
            t = std::string(TrimView(t));
        }
        std::string result = Item(Words(t, " "), n);
        for (char& c : result) c = op.ends_with("comma") && c == ',' ? '.' : c;
        return result;
    }
};

TEST(Condition, RandomTokensGiveWhatTheLiteralEvaluationGives) {
    std::vector<std::string> words = {
        "1",          "0",      "2",      "3",      "17", "'%data%'", "'%data%'", "'a b 1,5 -c'",
        "\"'x'\"",    "'-2.5'", "'101B'", "'1 kb'", "''", "'0x'",     "'7,8'",    "'1\t2'",
        "'a-1--2 -'", "xor"};
    for (const OperatorEntry& entry : ConditionOperatorTable) {
        if (!entry.keyword.ends_with("field")) words.emplace_back(entry.keyword);
    }
    std::mt19937 random(5);
    std::string lines[] = {"", "a 1,2 b", "'5'", "-", "not", "1", "x --7 3.5\t9", "3- -4 -"};
    int values = 0;
    for (int i = 0; i < 60000; ++i) {
        VyStringList postfix;
        int operands = 0;
        for (size_t n = random() % 12; n > 0; --n) {
            bool operand = operands < 2 && random() % 10 != 0;
            postfix.Add(words[operand ? random() % 17 : random() % words.size()]);
            operands = operand ? operands + 1 : operands - 1;
        }
        ConditionProgram program(postfix);
        std::string& line = lines[random() % std::size(lines)];
        std::vector<std::string> tokens;
        std::string shown;
        for (int32_t k = 0; k < postfix.Count(); ++k) {
            tokens.emplace_back(postfix.ItemView(k));
            shown += tokens.back() + ' ';
            if (tokens.back() == "'%data%'") tokens.back() = line;
        }
        VyString errorText;
        bool result = program.Evaluate(line, errorText);
        ASSERT_EQ(Outcome(result, errorText), SlowEvaluator::Evaluate(tokens)) << shown << line;
        values += errorText.Empty() || errorText.Pos("result") > 0;
    }
    EXPECT_GT(values, 5000);
}

TEST(Condition, TakesLongExpressionsAndLines) {
    constexpr size_t kSize = 1 << 16;
    std::string deep, flat = "0", wide = "not ";
    while (deep.size() < kSize) deep += "1*(";
    deep.append("1").append(deep.size() / 3, ')');
    while (flat.size() < kSize) flat += "+1-1";
    wide.append(kSize, '(').append("0").append(kSize, ')');
    EXPECT_EQ(Outcome(deep), "1");
    EXPECT_EQ(Outcome(flat), "0");
    EXPECT_EQ(Outcome(wide), "1");
    for (const char* unit : {"-", "1 ", "1-", ",", "\"", "\",", "a", " "}) {
        std::string line;
        while (line.size() < 16 * kSize) line += unit;
        for (const char* op :
             {"getnumber", "getnumberwithcomma", "csvfield", "endword", "+", "in"}) {
            std::string expression = std::string("'%data%' ") + op + " 300000 == '%data%'";
            EXPECT_NE(OnLine(expression, line), "1") << unit << op;
        }
    }
}

}  // namespace
}  // namespace zot
