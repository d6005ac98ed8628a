// Finds a text in lines and in whole blocks of a log, with or without regard to case, as part of a
// word or as a whole word.
//
// A search looks at 16 positions at a time for the two bytes of the pattern that are rarest in
// logs, and compares the whole pattern only where both are found. For a text made to defeat this it
// changes to a search with a prefix table: the time is linear in the text whatever the input.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "base/vystring.h"

namespace zot {

// A byte of a pattern, and how to recognize it: (byte | caseBit) == value.
struct PatternByte {
    size_t offset = 0;
    uint8_t caseBit = 0;
    uint8_t value = 0;
};

// A pattern prepared for many searches, by any number of threads.
class TextPattern {
  public:
    TextPattern(std::string_view pattern, bool caseSensitive, bool wholeWord);

    // The 1-based position of the first acceptable occurrence at or after the 1-based `start`, 0 if
    // there is none or the pattern is empty. An occurrence is a whole word when neither of its
    // neighbours in `text` (those before `start` included) is an ASCII letter or digit. Throws only
    // std::bad_alloc.
    int64_t Find(std::string_view text, int64_t start = 1) const;

    size_t Size() const noexcept { return static_cast<size_t>(pattern_.Length()); }

  private:
    VyString pattern_;  // in lower case unless the case matters
    bool caseSensitive_;
    bool wholeWord_;
    PatternByte rarest_;
    PatternByte nextRarest_;
};

// The same for a pattern that is used once.
int64_t FindText(std::string_view text, std::string_view pattern, bool caseSensitive,
                 bool wholeWord);

}  // namespace zot
