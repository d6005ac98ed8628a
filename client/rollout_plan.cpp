#include "client/rollout_plan.h"

#include <algorithm>
#include <cstdint>

#include "base/numbers.h"

namespace zot::client {
namespace {

bool ParseSize(std::string_view word, size_t hosts, size_t& size) {
    bool percent = word.ends_with('%');
    if (percent) word.remove_suffix(1);
    int32_t number = 0;
    if (!ParseInt(word, number) || number < 1 || (percent && number > 100)) return false;
    size = static_cast<size_t>(number);
    if (percent) size = std::max<size_t>(1, hosts * size / 100);
    return true;
}

}  // namespace

bool PlanBatches(std::string_view sizes, size_t hosts, std::vector<size_t>& batches,
                 std::string& error) {
    batches.clear();
    std::vector<size_t> wanted;
    for (std::string_view rest = sizes; !rest.empty();) {
        size_t end = std::min(rest.find(','), rest.size());
        if (!ParseSize(rest.substr(0, end), hosts, wanted.emplace_back())) {
            error = "not sizes of batches: " + std::string(sizes) + " (such as 1,5,20%)";
            return false;
        }
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    if (wanted.empty()) wanted.push_back(hosts);
    for (size_t i = 0, left = hosts; left > 0; ++i) {
        size_t size = std::min(left, wanted[std::min(i, wanted.size() - 1)]);
        batches.push_back(size);
        left -= size;
    }
    return true;
}

std::string PlanText(const std::string& canary, const std::vector<size_t>& batches, size_t hosts) {
    std::string text = "plan: " + canary;
    for (size_t i = 0; i < batches.size(); ++i) {
        // Batches that repeat the last size, and the rest after them, belong together.
        bool same = i > 0 && (batches[i] == batches[i - 1] || (i + 1 == batches.size() && i > 1 &&
                                                               batches[i - 1] == batches[i - 2]));
        bool first = i == 0 && canary.empty();
        text += first ? "" : same ? ", " : " | ";
        text += std::to_string(batches[i]);
    }
    return text + "  (" + std::to_string(hosts) + (hosts == 1 ? " host)" : " hosts)");
}

}  // namespace zot::client
