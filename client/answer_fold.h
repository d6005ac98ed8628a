// Prints equal answers once, with all hosts that gave them.
#pragma once

#include <vector>

#include "client/host_run.h"
#include "client/invocation.h"

namespace zot::client {

// Prints one line for each different answer: first the one of most hosts, last the hosts without an
// answer. Each other answer shows which of its fields differ from the first. With --diff, fields
// that are the same everywhere are left out.
void PrintFold(const Invocation& call, const std::vector<HostReport>& reports, Output output);

}  // namespace zot::client
