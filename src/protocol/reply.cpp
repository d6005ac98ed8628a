#include "protocol/reply.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

#include "base/escaping.h"
#include "protocol/request_text.h"

namespace zot {
namespace {

constexpr size_t kFormatBuffer = 2048;

}  // namespace

void Reply::Start(std::string_view code) {
    text_.Clear();
    if (!code.empty()) AppendLine(code);
}

void Reply::Start(std::string_view code, std::string_view line) {
    Start(code);
    AppendLine(line);
}

void Reply::AppendLine(std::string_view text, Escaping escaping) {
    EndLine();
    MakeRoom(text.size() + 1);
    if (escaping == Escaping::kLineBreaks) {
        AppendEscaped(text_, text);
    } else {
        text_.Append(text);
    }
    text_.Append('\n');
}

void Reply::AppendInt(int32_t value) { AppendFormatted("%d", value); }

void Reply::AppendInt64(int64_t value) { AppendFormatted("%6lld", static_cast<long long>(value)); }

void Reply::AppendDouble(double value) {
    char buffer[35];
    std::snprintf(buffer, sizeof buffer, "%6.4f", value);
    AppendLine(buffer);
}

void Reply::AppendDate(const std::tm& time) {
    AppendFormatted("%2.2d%2.2d%4.4d%2.2d%2.2d%2.2d", time.tm_mday, time.tm_mon + 1,
                    time.tm_year + 1900, time.tm_hour, time.tm_min, time.tm_sec);
}

void Reply::AppendLocalTime(time_t time) {
    std::tm local{};
    localtime_r(&time, &local);
    AppendDate(local);
}

void Reply::AppendFormatted(const char* format, ...) {
    char buffer[kFormatBuffer];
    va_list arguments;
    va_start(arguments, format);
    int length = std::vsnprintf(buffer, sizeof buffer, format, arguments);
    va_end(arguments);
    if (length >= 0 && static_cast<size_t>(length) <= sizeof buffer) AppendLine(buffer);
}

void Reply::AppendRaw(std::string_view text) { text_.Append(text); }

void Reply::Finish() {
    EndLine();
    text_.Append('\r');
}

void Reply::EndLine() {
    if (!text_.Empty() && text_.At(text_.Length()) != '\n') text_.Append('\n');
}

void Reply::MakeRoom(size_t extra) {
    size_t needed = static_cast<size_t>(text_.Length()) + extra;
    // Doubling keeps a reply of many lines from being moved once for every 128 bytes.
    if (needed > text_.Capacity()) text_.Reserve(std::max(needed, size_t{text_.Capacity()} * 2));
}

}  // namespace zot
