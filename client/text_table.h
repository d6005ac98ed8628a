// A table for people: columns as wide as necessary, numbers aligned to the right.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace zot::client {

struct Cell {
    std::string text;
    bool right = false;
    const char* colour = "";  // an escape sequence, or nothing
};

// Rows may be shorter than the heading. Cells hold no control characters.
void PrintTable(const std::vector<std::string>& headings,
                const std::vector<std::vector<Cell>>& rows, std::ostream& out);

}  // namespace zot::client
