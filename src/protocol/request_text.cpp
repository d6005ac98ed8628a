#include "protocol/request_text.h"

#include <algorithm>
#include <cstddef>

#include "base/numbers.h"
#include "base/vystring.h"

namespace zot {
namespace {

// Bytes from 0x80 up count as blank here: the comparison is one of signed bytes, and servers have
// been written against it.
bool IsLeadingBlank(char c) { return static_cast<signed char>(c) < 33; }

std::string_view UpToLineFeed(std::string_view text) { return text.substr(0, text.find('\n')); }

// Moves the text to the beginning of line n; false when there is no such line.
bool SkipToLine(std::string_view& text, int32_t n) {
    if (n < 1) return false;
    for (; n > 1; --n) {
        size_t at = text.find('\n');
        if (at == std::string_view::npos) return false;
        text.remove_prefix(at + 1);
    }
    return true;
}

}  // namespace

std::string_view RawLine(std::string_view text, int32_t n) {
    return SkipToLine(text, n) ? UpToLineFeed(text) : std::string_view();
}

std::string_view OptionalRawLine(std::string_view text, int32_t n) {
    std::string_view line = RawLine(text, n);
    return line == "\r" ? std::string_view() : line;
}

std::string_view GetLine(std::string_view text, int32_t n) {
    if (!SkipToLine(text, n)) return {};
    while (!text.empty() && IsLeadingBlank(text.front())) text.remove_prefix(1);
    return TrimView(UpToLineFeed(text));
}

bool NextLine(std::string_view& text, std::string_view& line) {
    if (text.find('\n') == std::string_view::npos) return false;
    line = GetLine(text, 1);
    if (line.empty()) return false;
    text.remove_prefix(static_cast<size_t>(line.data() - text.data()));
    // The last line needs no end if blanks lead to it.
    text.remove_prefix(std::min(text.find('\n'), text.size() - 1) + 1);
    return true;
}

RequestDate ParseDate(std::string_view text) {
    if (text.size() != 14) return {};
    auto part = [text](size_t at, size_t count) { return ToInt(text.substr(at, count)); };
    return {part(0, 2), part(2, 2), part(4, 4), part(8, 2), part(10, 2), part(12, 2)};
}

}  // namespace zot
