// The terminal or pipe to which an interactive agent echoes its log.
#pragma once

#include <atomic>
#include <string_view>

#include "base/owners.h"

namespace zot {

class Console {
  public:
    // One thread at a time: writes one line of at most 512 bytes to standard output. A reader that
    // has stopped is waited for once, for a second; then lines are dropped until there is room for
    // one again.
    void Write(std::string_view line);

    // The same without waiting. Async-signal-safe.
    void WriteFromSignal(std::string_view line) noexcept;

  private:
    void Open();

    // Standard output, or the same terminal opened again: non-blocking writes must not become a
    // property of the shell's standard output.
    std::atomic<int> descriptor_{-1};
    UniqueFd ownTerminal_;
    bool stalled_ = false;
};

}  // namespace zot
