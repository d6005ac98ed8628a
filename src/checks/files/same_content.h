// Comparing the content of two files.
#pragma once

#include <string_view>

namespace zot {

// 1 when the files hold the same bytes as far as the shorter one goes, 0 when they differ there,
// -1 when one cannot be opened or read.
int SameContent(std::string_view path1, std::string_view path2);

}  // namespace zot
