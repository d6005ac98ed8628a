#include "checks/logs/line_matcher.h"

#include <algorithm>

#include "base/vystring_list.h"
#include "expr/condition.h"
#include "expr/expression_parser.h"
#include "expr/find_text.h"
#include "expr/operator_table.h"
#include "expr/search.h"

namespace zot {
namespace {

// How many bytes FindLast looks at first, and at most, at a time: where many lines match, the first
// look is enough.
constexpr size_t kFirstLook = 1 << 10;
constexpr size_t kLongestLook = 32 << 10;

size_t LineBegin(std::string_view text, size_t at) {
    while (at > 0 && !IsLineEnd(text[at - 1])) --at;
    return at;
}

size_t LineEnd(std::string_view text, size_t at) {
    while (at < text.size() && !IsLineEnd(text[at])) ++at;
    return at;
}

// Takes the lines that are not empty off the front of a text.
class LineCutter {
  public:
    explicit LineCutter(std::string_view lines) : lines_(lines), lineFeed_(lines.find('\n')) {}

    bool Next(std::string_view& line) {
        while (at_ < lines_.size()) {
            if (lineFeed_ < at_) lineFeed_ = lines_.find('\n', at_);
            line = lines_.substr(at_, lineFeed_ - at_);
            line = line.substr(0, line.find('\r'));
            at_ += line.size() + 1;
            if (!line.empty()) return true;
        }
        return false;
    }

  private:
    std::string_view lines_;
    size_t lineFeed_;  // the next one, or npos
    size_t at_ = 0;
};

class TextMatcher : public LineMatcher {
  public:
    explicit TextMatcher(const LogCriterion& criterion)
        : pattern_(CanMatch(criterion.text) ? criterion.text.View() : std::string_view(),
                   criterion.caseSensitive, criterion.wholeWord) {}

    std::unique_ptr<LineMatcher> Copy() const override {
        return std::make_unique<TextMatcher>(*this);
    }

    size_t SizeWithoutMatch(std::string_view text) override {
        const int64_t found = pattern_.Find(text);
        return found > 0 ? static_cast<size_t>(found) - 1 : text.size();
    }

    // Enough for a text across the border of two parts, and for the character before it.
    size_t Overlap() const override { return pattern_.Size() + 1; }

    int64_t MatchPart(std::string_view part, bool isFirst, bool isLast) override {
        int64_t found = pattern_.Find(part, isFirst ? 1 : 2);
        // The next part shows what follows, and so whether this is a word.
        bool undecided = !isLast && found + static_cast<int64_t>(pattern_.Size()) >
                                        static_cast<int64_t>(part.size());
        return undecided ? 0 : found;
    }

  private:
    // No line contains a line end. So a text without one is found within one line, and the ends of
    // a line are borders of a word just as the ends of a text are: lines can be searched without
    // cutting them.
    static bool CanMatch(std::string_view text) {
        return std::none_of(text.begin(), text.end(), IsLineEnd);
    }

    LineMatch Find(std::string_view lines, bool last) override {
        LineMatch match;
        size_t from = 0;
        while (int64_t found = pattern_.Find(lines, static_cast<int64_t>(from) + 1)) {
            auto at = static_cast<size_t>(found) - 1;
            size_t begin = LineBegin(lines, at);
            from = LineEnd(lines, at + pattern_.Size());
            match = {lines.substr(begin, from - begin), static_cast<int64_t>(at - begin) + 1};
            if (!last) break;
        }
        return match;
    }

    TextPattern pattern_;
};

// Both expression languages; a derived class evaluates one.
class ExpressionMatcher : public LineMatcher {
  public:
    int64_t MatchPart(std::string_view part, bool isFirst, bool) override {
        return isFirst && Matches(part) ? 1 : 0;
    }

  private:
    virtual bool Matches(std::string_view line) = 0;

    LineMatch Find(std::string_view lines, bool last) override {
        LineMatch match;
        LineCutter cutter(lines);
        for (std::string_view line; (last || !match) && cutter.Next(line);) {
            if (Matches(line)) match = {line, 1};
        }
        return match;
    }
};

class SearchMatcher : public ExpressionMatcher {
  public:
    SearchMatcher(const VyStringList& postfix, const LogCriterion& criterion)
        : program_(postfix, criterion.caseSensitive, criterion.wholeWord) {}

    std::unique_ptr<LineMatcher> Copy() const override {
        return std::make_unique<SearchMatcher>(*this);
    }

  private:
    bool Matches(std::string_view line) override { return program_.Matches(line); }

    SearchProgram program_;
};

class ConditionMatcher : public ExpressionMatcher {
  public:
    explicit ConditionMatcher(const VyStringList& postfix)
        : postfix_(postfix), program_(postfix_) {}

    std::unique_ptr<LineMatcher> Copy() const override {
        return std::make_unique<ConditionMatcher>(postfix_);
    }

  private:
    // A line on which the evaluation fails does not match.
    bool Matches(std::string_view line) override { return program_.IsTrueOf(line); }

    VyStringList postfix_;  // the program has views of it
    ConditionProgram program_;
};

}  // namespace

LineMatch LineMatcher::FindLast(std::string_view lines) {
    size_t look = kFirstLook;
    for (size_t end = lines.size(); end > 0;) {
        size_t begin = end > look ? LineBegin(lines, end - look) : 0;
        if (LineMatch match = Find(lines.substr(begin, end - begin), true)) return match;
        end = begin;
        look = std::min(2 * look, kLongestLook);
    }
    return {};
}

std::unique_ptr<LineMatcher> MakeLineMatcher(const LogCriterion& criterion, VyString& errorText) {
    if (criterion.kind == LogCriterion::Kind::kText)
        return std::make_unique<TextMatcher>(criterion);
    bool isSearch = criterion.kind == LogCriterion::Kind::kSearch;
    ExpressionParser parser(isSearch ? SearchOperatorTable : OperatorTable(ConditionOperatorTable));
    std::string_view expression = criterion.text;
    if (!ParseExpression(parser, expression, false)) {
        errorText = parser.errorText;
        return nullptr;
    }
    if (isSearch) return std::make_unique<SearchMatcher>(parser.output, criterion);
    return std::make_unique<ConditionMatcher>(parser.output);
}

}  // namespace zot
