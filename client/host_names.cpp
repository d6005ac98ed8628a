#include "client/host_names.h"

#include <algorithm>
#include <map>

#include "base/ascii.h"
#include "base/numbers.h"

namespace zot::client {
namespace {

constexpr size_t kMaxNames = 100000;
constexpr size_t kMaxDigits = 9;

// Splits at the commas that are not inside brackets.
std::vector<std::string_view> SplitOutside(std::string_view text) {
    std::vector<std::string_view> parts;
    size_t start = 0;
    bool inside = false;
    for (size_t i = 0; i <= text.size(); ++i) {
        if (i < text.size() && text[i] == '[') inside = true;
        if (i < text.size() && text[i] == ']') inside = false;
        if (i < text.size() && (inside || text[i] != ',')) continue;
        if (i > start) parts.push_back(text.substr(start, i - start));
        start = i + 1;
    }
    return parts;
}

bool IsNumber(std::string_view text) {
    return !text.empty() && text.size() <= kMaxDigits &&
           std::all_of(text.begin(), text.end(), IsDigit);
}

std::string Padded(int32_t number, size_t width) {
    std::string text = std::to_string(number);
    return text.size() < width ? std::string(width - text.size(), '0') + text : text;
}

// "08-10" or a single word.
bool ExpandItem(std::string_view item, std::vector<std::string>& values) {
    size_t dash = item.find('-');
    if (dash == std::string_view::npos) {
        values.emplace_back(item);
        return !item.empty();
    }
    std::string_view first = item.substr(0, dash), last = item.substr(dash + 1);
    if (!IsNumber(first) || !IsNumber(last)) return false;
    int32_t from = ToInt(first), to = ToInt(last);
    if (from > to || static_cast<size_t>(to - from) >= kMaxNames) return false;
    size_t width = first.starts_with('0') ? first.size() : 0;
    for (int32_t number = from; number <= to; ++number) values.push_back(Padded(number, width));
    return true;
}

// Expands the first bracket of the name and what follows it.
bool ExpandOne(const std::string& prefix, std::string_view rest, std::vector<std::string>& names) {
    size_t open = rest.find('[');
    if (open == std::string_view::npos) {
        names.push_back(prefix + std::string(rest));
        return rest.find(']') == std::string_view::npos && names.size() <= kMaxNames;
    }
    size_t close = rest.find(']', open);
    if (close == std::string_view::npos) return false;
    std::vector<std::string> values;
    for (std::string_view item : SplitOutside(rest.substr(open + 1, close - open - 1))) {
        if (!ExpandItem(item, values)) return false;
    }
    std::string head = prefix + std::string(rest.substr(0, open));
    return !values.empty() && std::all_of(values.begin(), values.end(), [&](const auto& value) {
        return ExpandOne(head + value, rest.substr(close + 1), names);
    });
}

// A name as the text before its last number, the number, and the text after it.
struct NumberedName {
    std::string_view before, digits, after;

    explicit NumberedName(std::string_view name) {
        size_t end = name.size();
        while (end > 0 && !IsDigit(name[end - 1])) --end;
        size_t start = end;
        while (start > 0 && IsDigit(name[start - 1]) && end - start < kMaxDigits) --start;
        before = name.substr(0, start);
        digits = name.substr(start, end - start);
        after = name.substr(end);
    }
    // Names of one family differ only in the number and, with leading zeros, in its width.
    std::string Family() const {
        std::string width = digits.starts_with('0') ? std::to_string(digits.size()) : "";
        return std::string(before) + '\n' + std::string(after) + '\n' + width;
    }
};

struct Family {
    NumberedName example;
    std::vector<std::string_view> numbers;
};

std::string FoldFamily(const Family& family) {
    auto numbers = family.numbers;
    std::sort(numbers.begin(), numbers.end(),
              [](auto a, auto b) { return ToInt(a) != ToInt(b) ? ToInt(a) < ToInt(b) : a < b; });
    std::string ranges;
    bool several = numbers.size() > 1;
    for (size_t i = 0; i < numbers.size();) {
        size_t last = i;
        while (last + 1 < numbers.size() && ToInt(numbers[last + 1]) == ToInt(numbers[last]) + 1) {
            ++last;
        }
        if (!ranges.empty()) ranges += ',';
        ranges += numbers[i];
        if (last > i) ranges.append("-").append(numbers[last]);
        i = last + 1;
    }
    std::string text(family.example.before);
    text += several ? "[" + ranges + "]" : ranges;
    return text.append(family.example.after);
}

}  // namespace

bool ExpandNames(std::string_view text, std::vector<std::string>& names, std::string& error) {
    for (std::string_view part : SplitOutside(text)) {
        if (ExpandOne("", part, names)) continue;
        error = "not a set of host names: " + std::string(part);
        return false;
    }
    return true;
}

std::string FoldNames(std::span<const std::string> names) {
    std::vector<Family> families;
    std::map<std::string, size_t> known;
    for (const std::string& name : names) {
        NumberedName parts(name);
        auto [place, isNew] = known.emplace(parts.Family(), families.size());
        if (isNew) families.push_back({parts, {}});
        families[place->second].numbers.push_back(parts.digits);
    }
    std::string text;
    for (const Family& family : families) {
        if (!text.empty()) text += ',';
        text += FoldFamily(family);
    }
    return text;
}

}  // namespace zot::client
