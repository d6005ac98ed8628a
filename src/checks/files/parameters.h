// How the file tests read their parameter lines.
#pragma once

#include <cstdint>
#include <string_view>

#include "base/vystring.h"
#include "checks/files/file_macros.h"
#include "protocol/request_text.h"

namespace zot {

inline bool FlagLine(std::string_view params, int32_t line) {
    return IsFlagSet(GetLine(params, line));
}

// The path on `line`, with its file macros resolved when the flag on `macroLine` is set.
inline VyString PathLine(std::string_view params, int32_t line, int32_t macroLine) {
    std::string_view path = GetLine(params, line);
    return FlagLine(params, macroLine) ? ResolveFileMacros(path) : VyString(path);
}

}  // namespace zot
