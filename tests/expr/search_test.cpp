#include "expr/search.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace zot {
namespace {

TEST(Search, JoinsTexts) {
    struct {
        const char* line;
        const char* expression;
        bool caseSensitive, wholeWord;
        bool matches;
    } cases[] = {
        {"an Error here", "'error' and not 'timeout'", false, false, true},
        {"error: timeout", "'error' and not 'timeout'", false, false, false},
        {"an Error here", "'error'", true, false, false},
        {"errors", "'error'", false, true, false},
        {"b", "'a' or 'b' and 'c'", false, false, false},  // "or" and "and" are equals
        {"a", "'c' and 'b' or 'a'", false, false, true},
        {"a", "not 'b' and not 'c'", false, false, true},
        {"abc", "('a' or 'x') and ('y' or ('b' and 'c'))", false, false, true},
        {"it 'is'", "\"'is'\"", false, false, true},
        {"anything", "''", false, false, false},
        {"anything", "not ''", false, false, true},
        {"a 234 b", "12345", false, false, true},  // an integer loses its ends as if quoted
        {"5", "5", false, false, false},
        {"a", "'a' 'a'", false, false, false},
        {"a", "'a' and", false, false, false},
        {"a", "not", false, false, false},
        {"a", "'a' or or", false, false, false},
        {"a", "('a'", false, false, false},
        {"a", "'a')", false, false, false},
        {"a", "'a", false, false, false},
        {"a", "", false, false, false},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(EvaluateSearchText(c.line, c.expression, c.caseSensitive, c.wholeWord), c.matches)
            << c.line << " / " << c.expression;
    }
}

// The language taken literally: every token is evaluated, on a stack that may run empty.
bool EvaluateSlowly(const VyStringList& postfix, const std::string& line) {
    std::vector<bool> stack;
    for (int32_t i = 0; i < postfix.Count(); ++i) {
        std::string token(postfix.ItemView(i));
        if (token == "not") {
            if (stack.empty()) return false;
            stack.back() = !stack.back();
        } else if (token == "and" || token == "or") {
            if (stack.size() < 2) return false;
            bool right = stack.back();
            stack.pop_back();
            stack.back() = token == "or" ? stack.back() || right : stack.back() && right;
        } else {
            std::string text = token.size() < 2 ? "" : token.substr(1, token.size() - 2);
            stack.push_back(!text.empty() && line.find(text) != std::string::npos);
        }
    }
    return stack.size() == 1 && stack[0];
}

TEST(Search, RandomTokensGiveWhatTheLiteralEvaluationGives) {
    const char* words[] = {"'a'", "'b'", "\"c\"", "12", "and ", "or ", "not ", "(", ")", "7"};
    std::mt19937 random(4);
    int matches = 0;
    for (int i = 0; i < 50000; ++i) {
        std::string text = random() % 2 ? "'a'" : "";
        for (size_t n = random() % 16; n > 0; --n) text += words[random() % std::size(words)];
        ExpressionParser parser(SearchOperatorTable);
        std::string_view rest = text;
        if (ParseExpression(parser, rest, false) == 0) continue;
        SearchProgram program(parser.output, true, false);
        for (const char* line : {"", "a", "b", "ac", "abc"}) {
            bool expected = EvaluateSlowly(parser.output, line);
            ASSERT_EQ(program.Matches(line), expected) << text << " / " << line;
            ASSERT_EQ(EvaluateSearchText(line, text, true, false), expected) << text;
            matches += expected;
        }
    }
    EXPECT_GT(matches, 1000);
}

}  // namespace
}  // namespace zot
