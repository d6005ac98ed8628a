// Builds a reply: a three-digit status code on the first line, then one line per value.
#pragma once

#include <cstdint>
#include <ctime>
#include <string_view>

#include "base/vystring.h"

namespace zot {

enum class Escaping { kNone, kLineBreaks };

class Reply {
  public:
    // Discards what was there and begins with the code ("200", "301", ...); an empty code gives an
    // empty text.
    void Start(std::string_view code);
    // The usual refusal or failure: the code, and one line that gives the reason.
    void Start(std::string_view code, std::string_view line);

    // Each append first makes sure that the text ends with a line feed, then adds its value and one
    // line feed.
    void AppendLine(std::string_view text, Escaping escaping = Escaping::kNone);
    void AppendFlag(bool flag) { AppendLine(flag ? "1" : "0"); }
    void AppendInt(int32_t value);
    void AppendInt64(int64_t value);  // right-aligned in at least six places
    void AppendDouble(double value);  // four decimals
    // DDMMYYYYhhmmss of a broken-down time (month from 0, years since 1900).
    void AppendDate(const std::tm& time);
    void AppendLocalTime(time_t time);
    // A line formatted printf-style. It is dropped when longer than 2048 characters, and cut to
    // 2047 when exactly 2048 long, as with the buffer in which it was once formatted.
    void AppendFormatted(const char* format, ...) __attribute__((format(printf, 2, 3)));
    // Text that brings its own line ends, added unchanged.
    void AppendRaw(std::string_view text);

    // Makes sure that the text ends with a line feed and adds the carriage return that ends it.
    void Finish();

    // The first three characters, empty when the text is shorter.
    std::string_view Code() const { return text_.Length() > 2 ? text_.CopyView(1, 3) : ""; }
    VyString& Text() { return text_; }
    const VyString& Text() const { return text_; }

    // Reserves memory for this many more bytes, so that the text does not move.
    void MakeRoom(size_t extra);

  private:
    void EndLine();

    VyString text_;
};

}  // namespace zot
