// A pipe that ends the main loop's wait when there is something to do before the next second.
#pragma once

#include "base/owners.h"

namespace zot {

class Waker {
  public:
    Waker();
    // Makes Descriptor() readable. Callable from any thread, and from signal handlers.
    void Wake() noexcept;
    // Clears all wake-ups so far.
    void Drain() noexcept;
    // For poll; -1 when no pipe could be made: the loop then looks only once a second.
    int Descriptor() const noexcept { return readEnd_.Get(); }

  private:
    UniqueFd readEnd_;
    UniqueFd writeEnd_;
};

}  // namespace zot
