// What the lines of a log are searched for: a plain text, a search expression or a condition. A
// matcher is prepared once and then gets whole blocks of lines, so that it finds line borders only
// where it needs them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "base/vystring.h"

namespace zot {

constexpr bool IsLineEnd(char c) { return c == '\n' || c == '\r'; }

// What a request asks for.
struct LogCriterion {
    enum class Kind : int32_t { kText = 0, kSearch = 1, kCondition = 2 };  // as on the wire

    VyString text;
    Kind kind = Kind::kText;
    bool caseSensitive = false;  // only for texts and searches, like the next
    bool wholeWord = false;
};

struct LineMatch {
    std::string_view line;  // without its end; a view of the searched lines
    int64_t value = 0;      // 1-based position of the text in the line; 1 for an expression

    explicit operator bool() const noexcept { return value != 0; }
};

// One thread at a time. Empty lines never match. Throws only std::bad_alloc.
class LineMatcher {
  public:
    virtual ~LineMatcher() = default;

    // A matcher of the same lines for another thread.
    virtual std::unique_ptr<LineMatcher> Copy() const = 0;

    // The first or the last matching line of a text in which every line has its end.
    LineMatch FindFirst(std::string_view lines) { return Find(lines, false); }
    LineMatch FindLast(std::string_view lines);

    // How many bytes at the front of the text hold no match, at least: one that begins after them
    // may be there, also in a line that the text does not show whole. 0 where only looking at each
    // line tells.
    virtual size_t SizeWithoutMatch(std::string_view) { return 0; }

    // Lines too long to be held come in parts, each of which begins with at least the last
    // Overlap() bytes of the one before. Expressions see only the first part; the position of a
    // text is found wherever it is. Returns the value of a match, counted within the part.
    virtual size_t Overlap() const { return 0; }
    virtual int64_t MatchPart(std::string_view part, bool isFirst, bool isLast) = 0;

  private:
    virtual LineMatch Find(std::string_view lines, bool last) = 0;
};

using LineMatchers = std::vector<std::unique_ptr<LineMatcher>>;

// Prepares a matcher. Null, with the parser's message, for an expression that does not parse.
std::unique_ptr<LineMatcher> MakeLineMatcher(const LogCriterion& criterion, VyString& errorText);

}  // namespace zot
