// What the word, field and number operators of the condition language take out of a text. All
// return views of their text, so a log line is never copied.
#pragma once

#include <cstdint>
#include <string_view>

namespace zot {

// The text without its first and last character when these are the same quote (single or double).
std::string_view Unquote(std::string_view text) noexcept;

// The n-th word (from 1) between runs of spaces, tabs, CR and LF, counted from the front or from
// the end; empty if there is none.
std::string_view NthWord(std::string_view text, int64_t n) noexcept;
std::string_view NthWordFromEnd(std::string_view text, int64_t n) noexcept;

// The n-th field (from 1) between separators; empty if there is none. A field that begins with a
// double quote goes on to its closing quote and comes without both; anything between the closing
// quote and the next separator is dropped, and a missing closing quote takes the rest of the text.
// Two double quotes inside mean one (as in RFC 4180): they are returned unchanged, and
// `doubledQuotes` says that the field holds some.
std::string_view DelimitedField(std::string_view text, int64_t n, char separator,
                                bool& doubledQuotes) noexcept;

// The n-th number (from 1) of the text; empty if there is none. A number consists of digits, a "-"
// in front and the character `point` ('-' for none). A text whose last character is still a "-"
// where a number could begin holds no number at all.
std::string_view NthNumber(std::string_view text, int64_t n, char point) noexcept;

}  // namespace zot
