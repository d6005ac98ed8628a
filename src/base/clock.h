// Time for waiting: clocks that do not jump when somebody sets the date.
#pragma once

#include <cstdint>

namespace zot {

// Milliseconds, or whole seconds, of a clock that only goes forward. Async-signal-safe.
int64_t MonotonicMs();
int64_t MonotonicSeconds();

// The moment, on the clock of MonotonicMs, at which the wall clock began the second it shows now.
// Time-outs that count whole seconds start there.
int64_t StartOfWholeSecond();

}  // namespace zot
