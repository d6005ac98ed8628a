#include "expr/expression_parser.h"

#include <gtest/gtest.h>

#include <string>

namespace zot {
namespace {

std::string Joined(const VyStringList& list) {
    std::string all;
    for (int32_t i = 0; i < list.Count(); ++i) {
        all.append(i > 0 ? " " : "").append(list.ItemView(i));
    }
    return all;
}

struct Parsed {
    const char* text;
    const char* output;
};

void ExpectOutputs(OperatorTable table, std::initializer_list<Parsed> cases) {
    for (const Parsed& c : cases) {
        ExpressionParser parser(table);
        std::string_view rest = c.text;
        EXPECT_EQ(ParseExpression(parser, rest, false), 1) << c.text;
        EXPECT_EQ(parser.errorText, "") << c.text;
        EXPECT_EQ(Joined(parser.output), c.output) << c.text;
        EXPECT_EQ(rest, "") << c.text;
    }
}

TEST(ExpressionParser, WritesPostfix) {
    ExpectOutputs(
        ConditionOperatorTable,
        {{"'a b c' getword 2 == 'b' and 10 > 5", "'a b c' 2 getword 'b' == 10 5 > and"},
         {"", ""},
         {" \t\r\n\x01", ""},
         {"\x01 1\t", "1"},
         {"10mod3", "10 3 mod"},
         {"10 MOD 3 ANd Not 1", "10 3 mod 1 not and"},
         {"1-2-3", "1 2 - 3 -"},
         {"1+2*3", "1 2 3 * +"},
         {"(1+2)*3", "1 2 + 3 *"},
         {"1 or 2 and 3", "1 2 or 3 and"},
         {"not 1 == 1 and 2 == 2", "1 1 == 2 2 == and not"},
         {"(not 1 or 0) and 1", "1 0 or not 1 and"},
         {"1 <> 2", "1 2 <>"},
         {"1<=2>=3<4", "1 2 <= 3 >= 4 <"},
         {"'' getnumberwithcomma 1", "'' 1 getnumberwithcomma"},
         {"'' getnumberwithdot 1 + '' getnumber 2", "'' 1 getnumberwithdot '' + 2 getnumber"},
         {"-5", "5 -"},
         {"'-5'", "'-5'"},
         {"'it''s'", "'it' 's'"},
         {"\"it's\"", "\"it's\""},
         {"(1 == 1", "1 1 == ("},  // not a failure here: the evaluator fails on the parenthesis
         {"()", ""}});
    ExpectOutputs(SearchOperatorTable, {{"'error' and not 'warning'", "'error' 'warning' not and"},
                                        {"-5 or +12", "-5 +12 or"}});
}

TEST(ExpressionParser, SaysWhatIsWrong) {
    struct {
        const char* text;
        const char* message;
        const char* rest;
    } cases[] = {
        {"a > 1", "Unknown operator: \"a\"", " > 1"},
        {"3.5 > 2", "Unknown operator: \"3.5\"", " > 2"},
        {"1 XOR 0 ", "Unknown operator: \"XOR\"", " 0"},
        {"1 xor 0", "Unknown operator: \"x\"", "or 0"},
        {"random", "Unknown operator: \"r\"", "andom"},
        {"notice", "Unknown operator: \"ice\"", ""},
        {"1 index", "Unknown operator: \"dex\"", ""},
        {"order", "Unknown operator: \"der\"", ""},
        {"1\t2", "Unknown operator: \"1\t2\"", ""},  // only a space ends a bare token
        {"5'a'", "Unknown operator: \"5'a'\"", ""},
        {"1 = 2", "Unknown operator: \"=\"", " 2"},
        {"1 == 1)", "Missing \"(\"", ""},
        {") 1", "Missing \"(\"", " 1"},
        {" 1 + 'a b ", "Unterminated string: 'a b", "'a b"},
        {"\"", "Unterminated string: \"", "\""},
    };
    for (const auto& c : cases) {
        ExpressionParser parser(ConditionOperatorTable);
        std::string_view rest = c.text;
        EXPECT_EQ(ParseExpression(parser, rest, false), 0) << c.text;
        EXPECT_EQ(parser.errorText, c.message) << c.text;
        EXPECT_EQ(rest, c.rest) << c.text;
    }
}

TEST(ExpressionParser, CheckingLeavesTheOutputAlone) {
    ExpressionParser parser(SearchOperatorTable);
    std::string_view text = "'a'";
    ASSERT_EQ(ParseExpression(parser, text, false), 1);
    text = "'b' or 'c'";
    EXPECT_EQ(ParseExpression(parser, text, true), 1);
    text = "'b' or 'c";
    EXPECT_EQ(ParseExpression(parser, text, true), 0);
    EXPECT_EQ(Joined(parser.output), "'a'");
}

// Quadratic work or recursion would never finish these.
TEST(ExpressionParser, TakesLongTexts) {
    constexpr size_t kSize = 1 << 20;
    for (std::string_view unit : {"(", ")", "not ", "'", "''", "1 ", "1+", "x", "1+(", " ", "-"}) {
        std::string text;
        while (text.size() < kSize) text += unit;
        for (OperatorTable table : {OperatorTable(ConditionOperatorTable), SearchOperatorTable}) {
            ExpressionParser parser(table);
            std::string_view rest = text;
            int result = ParseExpression(parser, rest, true);
            EXPECT_EQ(result == 0, !parser.errorText.Empty()) << unit;
        }
    }
}

}  // namespace
}  // namespace zot
