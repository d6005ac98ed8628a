// How far a mistyped word is from a known one.
#pragma once

#include <cstddef>
#include <string_view>

namespace zot {

// How many letters must be changed, added, left out or swapped with their neighbour to turn one
// word into the other.
size_t EditDistance(std::string_view a, std::string_view b);

}  // namespace zot
