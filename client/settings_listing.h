// Replies of name and value in a form for people: one pair on a line, lists spread out.
#pragma once

#include <iosfwd>

#include "client/request_packet.h"

namespace zot::client {

// Prints a reply to GetInfo or GetSettings. After each entry that can be off it says whether it is
// on.
void PrintListing(const Answer& answer, std::ostream& out);

}  // namespace zot::client
