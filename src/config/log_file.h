// Appending finished lines to a log file, which is opened for them and closed again, so that it may
// be renamed at any time.
#pragma once

#include <sys/uio.h>

#include <span>
#include <string_view>

#include "config/settings.h"

namespace zot {

// Appends the parts in one write, so that another process that appends cuts no line in two; to a
// named pipe line by line. The file is created if needed; a path without "/" is placed beside the
// configuration file. Never waits. Returns 0, also for an empty path or no parts, or the errno that
// tells why not all was written. Leaves errno alone. Async-signal-safe.
int AppendToLog(const AgentSettings& settings, std::string_view path,
                std::span<const iovec> parts) noexcept;

// The same for one line, where nobody is told of a failure.
void AppendLogLine(const AgentSettings& settings, std::string_view path, std::string_view line);

}  // namespace zot
