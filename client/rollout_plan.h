// The batches of a roll-out.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace zot::client {

// How many hosts each batch has, from sizes such as "1,5,20%"; the last one repeats until all hosts
// are included. A percentage refers to all hosts and means at least one. False with the error text
// when the sizes make no sense.
bool PlanBatches(std::string_view sizes, size_t hosts, std::vector<size_t>& batches,
                 std::string& error);

// "plan: web1 | 1 | 5 | 9, 9, 3  (28 hosts)": the canary, then the sizes; repeated ones together.
std::string PlanText(const std::string& canary, const std::vector<size_t>& batches, size_t hosts);

}  // namespace zot::client
