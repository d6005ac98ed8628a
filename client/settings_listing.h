// Replies of name and value as people read them: one to a line, lists spread out.
#pragma once

#include <iosfwd>

#include "client/request_packet.h"

namespace zot::client {

// Prints a reply to GetInfo or GetSettings. What is on and what is off stands behind each entry.
void PrintListing(const Answer& answer, std::ostream& out);

}  // namespace zot::client
