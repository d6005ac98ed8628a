// Finding a file whose name is given as a wildcard mask.
#pragma once

#include <string_view>

#include "base/vystring.h"

namespace zot {

// The path of the first entry, in the folder's own order, that matches the name part of `path` as
// a mask and is neither a folder nor a link; empty when there is none.
VyString FindWildcardFile(std::string_view path);

}  // namespace zot
