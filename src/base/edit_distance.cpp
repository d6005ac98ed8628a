#include "base/edit_distance.h"

#include <algorithm>
#include <vector>

namespace zot {

size_t EditDistance(std::string_view a, std::string_view b) {
    std::vector<std::vector<size_t>> costs(a.size() + 1, std::vector<size_t>(b.size() + 1));
    for (size_t i = 0; i <= a.size(); ++i) {
        for (size_t j = 0; j <= b.size(); ++j) {
            if (i == 0 || j == 0) {
                costs[i][j] = i + j;
                continue;
            }
            size_t differs = a[i - 1] == b[j - 1] ? 0 : 1;
            size_t& cost = costs[i][j];
            cost =
                std::min({costs[i - 1][j] + 1, costs[i][j - 1] + 1, costs[i - 1][j - 1] + differs});
            bool swapped = i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1];
            if (swapped) cost = std::min(cost, costs[i - 2][j - 2] + 1);
        }
    }
    return costs[a.size()][b.size()];
}

}  // namespace zot
