#include "client/settings_listing.h"

#include <algorithm>
#include <cstddef>
#include <iomanip>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "client/settings_reply.h"
#include "client/text.h"

namespace zot::client {
namespace {

// A list, and the setting that holds one character for each of its entries, '1' when it is on.
struct MarkedList {
    std::string_view entries;
    std::string_view marks;
};

constexpr MarkedList kMarkedLists[] = {
    {"Available tests", "Enabled tests"},
    {"Available actions", "Enabled actions"},
    {"IPFilterAddr", "IPFilterMarks"},
};

struct Row {
    std::string_view name;
    std::vector<std::string> values;  // one for each line of the output
};

std::vector<Row> MakeRows(const Answer& answer) {
    std::vector<Row> rows;
    for (const std::string& line : answer.lines) {
        size_t equals = line.find('=');
        if (equals == std::string::npos) continue;
        Row row = {std::string_view(line).substr(0, equals),
                   EntriesOf(std::string_view(line).substr(equals + 1))};
        if (row.values.empty()) row.values.emplace_back();
        rows.push_back(std::move(row));
    }
    return rows;
}

// Writes each mark after its entry and drops the row of the marks. If they do not match, both stay
// unchanged.
void JoinMarks(std::vector<Row>& rows, const MarkedList& list) {
    auto named = [&](std::string_view name) {
        return std::find_if(rows.begin(), rows.end(),
                            [name](const Row& row) { return row.name == name; });
    };
    auto entries = named(list.entries);
    auto marks = named(list.marks);
    if (entries == rows.end() || marks == rows.end()) return;
    const std::string& flags = marks->values[0];
    if (flags.empty() || flags.size() != entries->values.size()) return;
    size_t width = 0;
    for (const std::string& entry : entries->values) width = std::max(width, entry.size());
    for (size_t i = 0; i < flags.size(); ++i) {
        entries->values[i].resize(width, ' ');
        entries->values[i] += flags[i] == '1' ? "  on" : "  off";
    }
    rows.erase(marks);
}

void PrintRows(const std::vector<Row>& rows, std::ostream& out) {
    size_t width = 0;
    for (const Row& row : rows) width = std::max(width, row.name.size());
    for (const Row& row : rows) {
        std::string_view name = row.name;
        for (const std::string& value : row.values) {
            out << std::left << std::setw(static_cast<int>(width)) << Visible(name);
            if (!value.empty()) out << "  " << Visible(value);
            out << '\n';
            name = "";
        }
    }
}

}  // namespace

void PrintListing(const Answer& answer, std::ostream& out) {
    std::vector<Row> rows = MakeRows(answer);
    for (const MarkedList& list : kMarkedLists) JoinMarks(rows, list);
    PrintRows(rows, out);
}

}  // namespace zot::client
