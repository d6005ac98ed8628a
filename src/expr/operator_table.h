// The operators of the two small languages, as constant data. One lexer and one parser serve both
// languages, which differ only in these tables.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string_view>

namespace zot {

struct OperatorEntry {
    std::string_view keyword;  // lower case
    int32_t inputPriority;     // when the operator arrives from the input
    int32_t stackPriority;     // while it waits on the operator stack
};

using OperatorTable = std::span<const OperatorEntry>;

// The first row that matches wins, so a longer spelling comes before its prefixes. Rows 17 to 19
// repeat earlier ones and are never selected; they stay, so that every row keeps its number.
inline constexpr std::array<OperatorEntry, 27> ConditionOperatorTable{{
    {"(", 65535, 0},
    {"not", 65535, 0},
    {")", 1, 65520},
    {"and", 1, 1},
    {"or", 1, 1},
    {"<>", 2, 2},
    {"<=", 2, 2},
    {">=", 2, 2},
    {"==", 2, 2},
    {">", 2, 2},
    {"<", 2, 2},
    {"+", 3, 3},
    {"-", 3, 3},
    {"in", 3, 3},
    {"getword", 3, 3},
    {"endword", 3, 3},
    {"-", 3, 3},
    {"+", 3, 3},
    {"-", 3, 3},
    {"getnumberwithdot", 3, 3},
    {"getnumberwithcomma", 3, 3},
    {"getnumber", 3, 3},
    {"tsvfield", 3, 3},
    {"csvfield", 3, 3},
    {"div", 4, 4},
    {"mod", 4, 4},
    {"*", 4, 4},
}};

inline constexpr OperatorTable SearchOperatorTable = OperatorTable(ConditionOperatorTable).first(5);

// The 0-based row whose keyword is in `text` at the 1-based `position`, compared exactly and
// without regard to what follows; -1 if there is none.
int32_t FindOperatorAt(OperatorTable table, std::string_view text, int64_t position) noexcept;

// The row that `token` names in any case of ASCII letters, or null.
const OperatorEntry* FindOperator(OperatorTable table, std::string_view token) noexcept;

}  // namespace zot
