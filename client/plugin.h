// zotq as a monitoring plugin: runs one check, prints one status line with performance data, and
// ends with the status that monitoring systems know.
#pragma once

#include <string>
#include <string_view>

#include "client/invocation.h"

namespace zot::client {

enum PluginStatus : int { kOk = 0, kWarning = 1, kCritical = 2, kUnknown = 3 };

// The check is the first word of the options, its arguments are the others. All errors are UNKNOWN
// and go to standard output, because that is what monitoring systems show.
int RunPlugin(Invocation& call);

// Reports that the command line is wrong.
int PluginUsageError(const Console& console, std::string_view message);

// One line for each check, for the help text.
std::string ChecksHelp();

}  // namespace zot::client
