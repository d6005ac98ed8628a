// Turns host names into IPv4 addresses within a time limit, which the system's resolver does not
// have.
#pragma once

#include <cstdint>
#include <string_view>

#include "base/vystring.h"

namespace zot {

// How many look-ups with a limit run at once. One whose limit has passed runs on until the system's
// resolver gives up, usually after 20 seconds where name servers are dead; others wait for its
// place within their own limits.
inline constexpr int kMaxLookups = 16;

// Turns a name or a dotted address into an IPv4 address in network byte order. A dotted address
// never reaches the resolver. Returns kNetOk, or kNetResolveFailed with its text.
int32_t ResolveHost(std::string_view name, uint32_t& address, VyString& errorText);

// The same within `limitMs` milliseconds (above 0); after that kNetTimeout, with its text.
int32_t ResolveHostWithin(std::string_view name, int64_t limitMs, uint32_t& address,
                          VyString& errorText);

}  // namespace zot
