// Leaving the terminal, and the pid file that says where the daemon is.
#pragma once

#include <span>

#include "base/owners.h"
#include "config/log.h"
#include "config/settings.h"

namespace zot {

// Opens on "/dev/null" whichever of standard input, output and error the agent was started without.
// Otherwise the next files and sockets would get their numbers, and whatever is printed would go
// there.
void OpenStandardDescriptors();

// Detaches from the terminal: returns true in the detached child, false with errno when fork fails.
// The parent waits until the child closes `parent`, prints its line and ends with exit code 0, so
// that whoever started the agent can reach it from then on.
bool Daemonize(UniqueFd& parent);

// Closes everything but the standard descriptors and `kept`. Otherwise a daemon would hold its
// starter's locks and keep its starter's pipes from ending. REQUIRES that the process has opened
// nothing else that it needs. Async-signal-safe.
void CloseInheritedDescriptors(std::span<const int> kept) noexcept;

// The locked pid file, kept open for the life of the process because the lock lives with it.
class PidFile {
  public:
    // Creates, locks and writes the file named by the settings, in daemon mode and if there is a
    // name. A failure is logged and leaves the agent without a pid file.
    void Write(const AgentSettings& settings, Log& log);
    // Closes and deletes the file, if there is one. Async-signal-safe.
    void Remove() noexcept;

  private:
    UniqueFd file_;
    char path_[4096] = "";
};

}  // namespace zot
