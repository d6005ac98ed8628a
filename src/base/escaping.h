// Line breaks inside values, as requests, replies and the configuration file write them.
#pragma once

#include <string_view>

#include "base/vystring.h"

namespace zot {

// LF becomes "%0A" and CR "%0D", and back; only these upper-case forms are read back.
VyString Escape(std::string_view text);
void AppendEscaped(VyString& result, std::string_view text);
VyString Unescape(std::string_view text);

}  // namespace zot
