// The agent that is started next, as an upgrade's guard sees it from outside: where it will listen,
// and whether it does.
#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <string>

#include "config/settings.h"

namespace zot {

class NextAgent {
  public:
    // Reads what the configuration file says now, since that agent will obey it. `port` is that of
    // the command line, 0 for none.
    NextAgent(const AgentSettings& settings, int32_t port);

    bool HasPidFile() const noexcept { return !pidFile_.empty(); }

    // Whether an agent has locked the pid file, which it does once it listens; false if it has
    // none. Async-signal-safe.
    bool HoldsPidFile() const noexcept;

    // Whether somebody accepts connections where the agent should. Takes at most 0.4 seconds.
    // Async-signal-safe.
    bool Answers() const noexcept;

  private:
    std::string pidFile_;
    sockaddr_in address_{};
};

}  // namespace zot
