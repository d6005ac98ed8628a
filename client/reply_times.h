// Times in replies: DDMMYYYYhhmmss on the agent's clock, in a zone that is not given.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>
#include <string_view>

namespace zot::client {

// "2026-11-21T18:37:00", without a zone; empty when the text is not a time.
std::string LocalTimeText(std::string_view text);

// The moment, in seconds since 1970. The zone follows from our own clock and the age in seconds (in
// whole minutes) that the agent gives. Zones differ by quarters of an hour, so the clocks of agent
// and server may differ by seven minutes. -1 when the text is not a time.
int64_t LocalTimeToEpoch(std::string_view text, int64_t ageSeconds, time_t now);

}  // namespace zot::client
