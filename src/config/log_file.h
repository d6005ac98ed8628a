// Appends finished lines to a log file, which is opened and closed each time so that it may be
// renamed at any time.
#pragma once

#include <sys/uio.h>

#include <span>
#include <string_view>

#include "config/settings.h"

namespace zot {

// Appends the parts in one write, so that another process that appends splits no line; to a named
// pipe line by line. Creates the file if necessary; a path without "/" means one beside the
// configuration file. Never waits. Returns 0, also for an empty path or no parts, or the errno if
// not all was written. Leaves errno unchanged. Async-signal-safe.
int AppendToLog(const AgentSettings& settings, std::string_view path,
                std::span<const iovec> parts) noexcept;

// The same for one line; nobody hears of a failure.
void AppendLogLine(const AgentSettings& settings, std::string_view path, std::string_view line);

}  // namespace zot
