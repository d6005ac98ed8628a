#include "expr/condition.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/expressions.h"

namespace zot {
namespace {

// The message of an expression, or "1" or "0" if it has none.
std::string Outcome(bool result, const VyString& errorText) {
    if (result) return errorText.Empty() ? "1" : "true with a message";
    return errorText.Empty() ? "0" : std::string(errorText.View());
}

std::string Outcome(std::string_view expression) {
    VyString errorText("old");
    bool result = test::EvaluateConditionText(expression, errorText);
    return Outcome(result, errorText);
}

// What the expression leaves on the stack, shown by a message that contains it.
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
        {"\"'5'\" > 10", "1"},  // it loses one pair of quotes before it is read as a number
        {"'a' <> 'A'", "1"},
        {"'\xE4' > 'z'", "1"},
        {"'b' >= 'a' and 'a' <= 'a' and 'a' >= 'a'", "1"},
        {"'b' > 'a' and 'a' < 'b' and 'b' <> 'a'", "1"},
        {"'a' > 'a' or 'a' < 'a' or 'a' <> 'a' or 'b' <= 'a' or 'a' >= 'b' or 'b' == 'a'", "0"},
        {"1 < '1.00002' and 1 <= 1", "1"},
        {"1 < '1.000001' or 1 <= '0.999999'", "0"},
        {std::string("'ab\0c' == 'ab\0d'", 17), "1"},  // texts end at a NUL
        {"\"'abc'\" == 'abc'", "1"},                   // the left side loses two pairs of quotes
        {"'abc' == \"'abc'\"", "0"},                   // the right side only after a number
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
        {"(not 1) or (not 0)", "1"},
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
        {"' a b c' getword 1", "a"},
        {"'a\tb\rc' getword 3", "c"},
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
        {"'12 34 -' getnumber 1", ""},  // the last minus consumes the text before it
        {"'12 34-' getnumber 2", "34"},
        {"'5' getnumber 2", ""},
        {"'a' getnumber 1", ""},
        {"'1--' getnumber 1", ""},
        {"'1---2' getnumber 2", "-"},
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
    EXPECT_EQ(OnLine("7 5 '%data%' == 2", "xor"), "1");
    EXPECT_EQ(OnLine("+ and - and 1 2", "x"), "ConditionEval error");  // operators come first
    EXPECT_EQ(Outcome("'%data%' == '%data%'"), "1");
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
