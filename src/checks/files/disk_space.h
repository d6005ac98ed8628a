// The space of the file system that holds a path.
#pragma once

#include <cstdint>
#include <string_view>

namespace zot {

// Sizes in bytes; `available` is what the agent may use. Returns 1, or 0 with errno set.
int DiskSpace(std::string_view path, int64_t& total, int64_t& free, int64_t& available);

}  // namespace zot
