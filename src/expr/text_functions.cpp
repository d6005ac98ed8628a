#include "expr/text_functions.h"

#include <cstddef>

#include "base/ascii.h"

namespace zot {
namespace {

bool IsWordSeparator(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

// The end of the quoted text that begins at `start`: its closing quote or the end of the text.
size_t ClosingQuote(std::string_view text, size_t start, bool& doubledQuotes) {
    size_t at = text.find('"', start);
    while (at != std::string_view::npos && at + 1 < text.size() && text[at + 1] == '"') {
        doubledQuotes = true;
        at = text.find('"', at + 2);
    }
    return at == std::string_view::npos ? text.size() : at;
}

bool IsNumberPart(char c, char point) { return IsDigit(c) || c == '-' || c == point; }

// In a run of "-" every second one counts as a gap, beginning with the first one when the run
// follows a digit or a point. Whether the text ends with one that does not count as a gap.
bool EndsWithMinus(std::string_view text, char point) {
    size_t before = text.find_last_not_of('-');
    bool atStart = before == std::string_view::npos;
    size_t run = atStart ? text.size() : text.size() - before - 1;
    bool startsNumber = atStart || !IsNumberPart(text[before], point);
    return run > 0 && (run % 2 == 1) == startsNumber;
}

}  // namespace

std::string_view Unquote(std::string_view text) noexcept {
    bool quoted = text.size() >= 2 && (text.front() == '"' || text.front() == '\'') &&
                  text.back() == text.front();
    return quoted ? text.substr(1, text.size() - 2) : text;
}

std::string_view NthWord(std::string_view text, int64_t n) noexcept {
    if (n < 1) return {};
    for (size_t i = 0;;) {
        while (i < text.size() && IsWordSeparator(text[i])) ++i;
        if (i == text.size()) return {};
        size_t start = i;
        while (i < text.size() && !IsWordSeparator(text[i])) ++i;
        if (--n == 0) return text.substr(start, i - start);
    }
}

std::string_view NthWordFromEnd(std::string_view text, int64_t n) noexcept {
    if (n < 1) return {};
    for (size_t i = text.size();;) {
        while (i > 0 && IsWordSeparator(text[i - 1])) --i;
        if (i == 0) return {};
        size_t end = i;
        while (i > 0 && !IsWordSeparator(text[i - 1])) --i;
        if (--n == 0) return text.substr(i, end - i);
    }
}

std::string_view DelimitedField(std::string_view text, int64_t n, char separator,
                                bool& doubledQuotes) noexcept {
    doubledQuotes = false;
    if (n < 1) return {};
    for (size_t start = 0;;) {
        bool doubled = false;
        bool quoted = start < text.size() && text[start] == '"';
        size_t close = quoted ? ClosingQuote(text, start + 1, doubled) : start;
        if (--n == 0) {
            doubledQuotes = doubled;
            if (quoted) return text.substr(start + 1, close - start - 1);
            return text.substr(start, text.find(separator, start) - start);
        }
        size_t at = text.find(separator, close);
        if (at == std::string_view::npos) return {};
        start = at + 1;
    }
}

std::string_view NthNumber(std::string_view text, int64_t n, char point) noexcept {
    // A last "-" that starts a number consumes the text before it, one character after another.
    if (n < 1 || EndsWithMinus(text, point)) return {};
    bool inNumber = false;
    size_t start = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        bool part = IsNumberPart(text[i], point);
        if (part && text[i] == '-') {
            // After a digit, or before a gap, a "-" is a gap itself.
            part = !inNumber && (i + 1 == text.size() || IsNumberPart(text[i + 1], point));
        }
        if (part == inNumber) continue;
        if (part) {
            start = i;
        } else if (--n == 0) {
            return text.substr(start, i - start);
        }
        inNumber = part;
    }
    return inNumber && n == 1 ? text.substr(start) : std::string_view();
}

}  // namespace zot
