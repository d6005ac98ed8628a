// Leaving the terminal, and the pid file that says where the daemon is.
#pragma once

#include <span>

#include "base/owners.h"
#include "config/log.h"
#include "config/settings.h"

namespace zot {

// Opens those of standard input, output and error that the agent was started without on
// "/dev/null". Else the next files and sockets would get their numbers, and what is printed would
// go there.
void OpenStandardDescriptors();

// Detaches from the terminal: returns true in the detached child, false with errno when fork fails.
// The parent waits until the child closes `parent`, prints its line and ends with exit code 0:
// whoever has started the agent can then reach it.
bool Daemonize(UniqueFd& parent);

// Closes everything but the standard descriptors and `kept`. A daemon that kept what its starter
// had open would hold that one's locks and keep its pipes from ending. REQUIRES that the process
// has opened nothing else that it needs. Async-signal-safe.
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
