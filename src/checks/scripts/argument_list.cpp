#include "checks/scripts/argument_list.h"

#include <algorithm>
#include <cstring>

namespace zot {
namespace {

constexpr std::string_view kBlanks = " \t";

void Skip(std::string_view& text, size_t count) {
    text.remove_prefix(std::min(count, text.size()));
}

// Cuts the first argument off the text, which does not start with a blank.
std::string_view TakeArgument(std::string_view& text) {
    bool quoted = text.front() == '"' || text.front() == '\'';
    size_t end = quoted ? text.find(text.front(), 1) : text.find_first_of(kBlanks);
    std::string_view argument = text.substr(0, end);
    if (quoted) argument.remove_prefix(1);
    // Drops the closing quote or the blank too; text right after a closing quote is the next
    // argument.
    Skip(text, end == std::string_view::npos ? end : end + 1);
    return argument;
}

}  // namespace

ArgumentList::ArgumentList(std::string_view line) {
    size_t used = 0;
    while (count_ < kMaxArguments) {
        Skip(line, line.find_first_not_of(kBlanks));
        if (line.empty()) break;
        std::string_view argument = TakeArgument(line);
        if (argument.size() >= kArea - used) break;
        arguments_[count_++] = area_ + used;
        std::memcpy(area_ + used, argument.data(), argument.size());
        used += argument.size();
        area_[used++] = '\0';
    }
}

}  // namespace zot
