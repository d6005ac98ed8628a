// The search language: quoted texts joined by "and", "or", "not" and parentheses; each means "the
// line contains this text".
#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

#include "base/vystring_list.h"
#include "expr/expression_parser.h"
#include "expr/find_text.h"

namespace zot {

// A parsed search expression prepared for many lines. It keeps its own patterns, allocates nothing
// per line, and skips texts on which the result no longer depends. One thread at a time.
class SearchProgram {
  public:
    SearchProgram(const VyStringList& postfix, bool caseSensitive, bool wholeWord);

    // Whether the line satisfies the expression; never, when operands are missing or left over.
    // Throws only std::bad_alloc.
    bool Matches(std::string_view line);

  private:
    enum class Operation : char { kFind, kNot, kOr, kAnd };

    struct Step {
        Operation operation;
        bool decisive = false;  // the left value that makes this right operand superfluous
        size_t pattern = 0;     // index of a kFind
        size_t skipTo = 0;      // where to go on then; 0 when this does not begin a right operand
    };

    static Operation OperationOf(std::string_view token);
    void Compile(const VyStringList& postfix);

    std::vector<Step> steps_;  // empty when the expression can never be true
    std::vector<TextPattern> patterns_;
    std::vector<char> stack_;
};

}  // namespace zot
