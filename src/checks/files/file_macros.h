// The macros %newestfile%, %oldestfile%, %newestfolder% and %oldestfolder% in paths.
#pragma once

#include <string_view>

#include "base/vystring.h"

namespace zot {

// Replaces each macro, from left to right, by the name of the entry of that kind in the folder
// that the text before it names (nothing before it: the current working directory). Macro names
// are matched without regard to case; of equal times the first listed wins. Returns the text as it
// was when a macro finds no candidate or a folder cannot be read to its end.
VyString ResolveFileMacros(std::string_view text);

}  // namespace zot
