// Time for waiting: clocks that do not jump when somebody sets the date.
#pragma once

#include <cstdint>

namespace zot {

// Milliseconds, or whole seconds, of a clock that only goes forward. Async-signal-safe.
int64_t MonotonicMs();
int64_t MonotonicSeconds();

// The moment (on the clock of MonotonicMs) at which the whole-second wall clock has moved by more
// than `seconds` from what it shows now.
int64_t PastWholeSeconds(int64_t seconds);

}  // namespace zot
