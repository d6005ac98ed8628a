#include "expr/operator_table.h"

#include <algorithm>
#include <cstddef>

#include "base/ascii.h"

namespace zot {
namespace {

bool SameButForCase(std::string_view keyword, std::string_view token) {
    return std::equal(keyword.begin(), keyword.end(), token.begin(), token.end(),
                      [](char a, char b) { return a == LowerAscii(b); });
}

}  // namespace

int32_t FindOperatorAt(OperatorTable table, std::string_view text, int64_t position) noexcept {
    if (position < 1 || static_cast<size_t>(position) > text.size()) return -1;
    text.remove_prefix(static_cast<size_t>(position) - 1);
    for (size_t row = 0; row < table.size(); ++row) {
        if (text.starts_with(table[row].keyword)) return static_cast<int32_t>(row);
    }
    return -1;
}

const OperatorEntry* FindOperator(OperatorTable table, std::string_view token) noexcept {
    for (const OperatorEntry& entry : table) {
        if (SameButForCase(entry.keyword, token)) return &entry;
    }
    return nullptr;
}

}  // namespace zot
