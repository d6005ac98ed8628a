// The macros %newestfile%, %oldestfile%, %newestfolder% and %oldestfolder% in paths.
#pragma once

#include <string_view>

#include "base/vystring.h"

namespace zot {

// Replaces each macro, from left to right, by the name of that kind of entry in the folder that the
// text before it names (nothing before it: the current working directory). The case of macro names
// does not matter; of entries with equal times the first listed wins. Returns the text unchanged
// when a macro finds no candidate or a folder cannot be read to its end.
VyString ResolveFileMacros(std::string_view text);

}  // namespace zot
