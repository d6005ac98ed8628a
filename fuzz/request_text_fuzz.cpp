// The lines of a request, walked once and asked for one by one, and its numbers: both ways must
// agree on any bytes.
#include <algorithm>
#include <charconv>
#include <cstdint>

#include "fuzz/scratch.h"
#include "protocol/request_text.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace zot;
    std::string_view text(reinterpret_cast<const char*>(data), size);
    int32_t number = 0;
    std::string_view rest = text;
    std::string_view line;
    std::string_view before;
    const auto lines = static_cast<int32_t>(std::count(text.begin(), text.end(), '\n'));
    for (; number < std::min(64, lines); ++number) {
        std::string_view expected = GetLine(text, number + 1);
        if (expected.data() == before.data()) continue;
        before = expected;
        fuzz::Require(NextLine(rest, line) == !expected.empty());
        if (expected.empty()) break;
        fuzz::Require(line == expected);
        // Trimming removes blanks and never adds anything but a later line.
        std::string_view raw = TrimView(RawLine(text, number + 1));
        if (!raw.empty() && static_cast<signed char>(raw.front()) >= 33) fuzz::Require(raw == line);
    }
    std::string_view name = RawLine(text, 1);
    int64_t parsed = 0;
    int32_t narrow = 0;
    if (ParseInt64(name, parsed)) {
        fuzz::Require(ToInt64(name) == parsed && ParseInt(name, narrow));
        if (parsed == narrow) fuzz::Require(ToInt(name) == narrow);
        std::string_view digits = name.substr(name.starts_with('+') ? 1 : 0);
        int64_t expected = 0;
        auto result = std::from_chars(digits.data(), digits.data() + digits.size(), expected);
        if (result.ec == std::errc()) fuzz::Require(expected == parsed);
    }
    ToDouble(name);
    ParseDate(name);
    return 0;
}
