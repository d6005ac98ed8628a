#include "expr/search.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>
#include <string>

#include "base/ascii.h"
#include "expr/find_text.h"
#include "tests/support/expressions.h"

namespace zot {
namespace {

// Position by position, on copies in lower case.
int64_t FindSlowly(std::string text, std::string pattern, bool caseSensitive, bool wholeWord,
                   size_t start) {
    if (!caseSensitive) {
        for (char& c : text) c = LowerAscii(c);
        for (char& c : pattern) c = LowerAscii(c);
    }
    if (pattern.empty()) return 0;
    for (size_t at = start - 1; (at = text.find(pattern, at)) != std::string::npos; ++at) {
        size_t behind = at + pattern.size();
        bool word = (at == 0 || !IsAlnum(text[at - 1])) &&
                    (behind == text.size() || !IsAlnum(text[behind]));
        if (!wholeWord || word) return static_cast<int64_t>(at) + 1;
    }
    return 0;
}

TEST(FindText, FindsTheFirstAcceptableOccurrence) {
    struct {
        const char* text;
        const char* pattern;
        bool caseSensitive, wholeWord;
        int64_t position;
    } cases[] = {
        {"an Error here", "error", false, false, 4},
        {"an Error here", "error", true, false, 0},
        {"errors error", "error", false, true, 8},
        {"error", "error", true, true, 1},
        {"_error-", "ERROR", false, true, 2},
        {"7error", "error", false, true, 0},
        {"aa aaa aaaa", "aa aa", false, true, 0},
        {"xaa aa", "aa", false, true, 5},
        {"@[`{", "`", false, false, 3},  // not the lower case of "@"
        {"\xC4 \xE4", "\xE4", false, false, 3},
        {"text", "", false, false, 0},
        {"", "a", false, false, 0},
        {"ab", "abc", false, false, 0},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(FindText(c.text, c.pattern, c.caseSensitive, c.wholeWord), c.position)
            << c.text << " / " << c.pattern;
    }
    TextPattern pattern("a", false, true);
    EXPECT_EQ(pattern.Find("a xa", 4), 0);  // the neighbour before the start counts
    EXPECT_EQ(pattern.Find("a", 0), 0);
    EXPECT_EQ(pattern.Find("a", 2), 0);
}

TEST(FindText, AgreesWithTheSlowSearch) {
    std::mt19937 random(3);
    const std::string_view alphabets[] = {"ab", "aA", "a b", "error ERO\n-",
                                          "aaaaaaaaaaaaaaaaaaab"};
    for (int i = 0; i < 20000; ++i) {
        std::string_view letters = alphabets[random() % std::size(alphabets)];
        auto make = [&](size_t length) {
            std::string text;
            while (text.size() < length) text += letters[random() % letters.size()];
            return text;
        };
        size_t length = random() % (i % 50 == 0 ? 5000 : 300);
        // An exact heap copy, so that the sanitizer sees a read outside the text.
        std::unique_ptr<char[]> copy(new char[length]);
        std::string text = make(length);
        if (length > 0) std::memcpy(copy.get(), text.data(), length);
        std::string pattern = make(random() % (i % 3 == 0 ? 40 : 6));
        bool sensitive = random() % 2 == 0;
        bool word = random() % 2 == 0;
        size_t start = 1 + random() % (length + 1);
        ASSERT_EQ(TextPattern(pattern, sensitive, word)
                      .Find({copy.get(), length}, static_cast<int64_t>(start)),
                  FindSlowly(text, pattern, sensitive, word, start))
            << '"' << text << "\" / \"" << pattern << "\" from " << start;
    }
}

// Comparing the pattern at each position would take 10^12 steps.
TEST(FindText, RepetitionsDoNotSlowItDown) {
    constexpr size_t kHalf = 1 << 20;
    std::string text(2 * kHalf, 'a');
    EXPECT_EQ(FindText(text, std::string(kHalf, 'a') + 'b', true, false), 0);
    EXPECT_EQ(FindText(text, 'b' + std::string(kHalf, 'A'), false, false), 0);
    EXPECT_EQ(FindText(text, std::string(kHalf, 'A'), false, true), 0);  // never a whole word
    EXPECT_EQ(FindText(text + 'b', std::string(kHalf, 'A') + 'b', false, false), kHalf + 1);
}

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
        {"b", "'a' or 'b' and 'c'", false, false, false},  // "or" and "and" have equal priority
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
        EXPECT_EQ(test::EvaluateSearchText(c.line, c.expression, c.caseSensitive, c.wholeWord),
                  c.matches)
            << c.line << " / " << c.expression;
    }
}

}  // namespace
}  // namespace zot
