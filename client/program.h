// The program zotq without its main(): everything between the command line and the exit status.
#pragma once

#include <span>

#include "client/invocation.h"

namespace zot::client {

// Takes the arguments after the program's name; returns an ExitStatus or, as a plugin, a
// PluginStatus.
int RunProgram(std::span<const char* const> arguments, const Environment& environment,
               const Console& console);

}  // namespace zot::client
