#include "client/text_table.h"

#include <algorithm>
#include <ostream>

#include "client/text.h"

namespace zot::client {
namespace {

void PrintRow(const std::vector<Cell>& row, const std::vector<size_t>& widths, std::ostream& out) {
    std::string line;
    for (size_t i = 0; i < row.size(); ++i) {
        const Cell& cell = row[i];
        std::string space(widths[i] - std::min(widths[i], Width(cell.text)), ' ');
        if (i > 0) line += "  ";
        if (cell.right) line += space;
        bool coloured = *cell.colour != '\0';
        line += cell.colour + cell.text + (coloured ? "\x1b[0m" : "");
        if (!cell.right && i + 1 < row.size()) line += space;
    }
    line.erase(line.find_last_not_of(' ') + 1);
    out << line << '\n';
}

}  // namespace

void PrintTable(const std::vector<std::string>& headings,
                const std::vector<std::vector<Cell>>& rows, std::ostream& out) {
    std::vector<size_t> widths;
    std::vector<Cell> top;
    for (const std::string& heading : headings) {
        widths.push_back(Width(heading));
        top.push_back({heading});
    }
    for (const auto& row : rows) {
        for (size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], Width(row[i].text));
    }
    PrintRow(top, widths, out);
    for (const auto& row : rows) PrintRow(row, widths, out);
}

}  // namespace zot::client
