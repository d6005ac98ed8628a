// Equal answers once, with all hosts that gave them.
#pragma once

#include <vector>

#include "client/host_run.h"
#include "client/invocation.h"

namespace zot::client {

// Prints one line for each different answer, that of most hosts first, hosts without an answer
// last. Another answer tells which fields differ from the first. With --diff fields that are the
// same everywhere are left out.
void PrintFold(const Invocation& call, const std::vector<HostReport>& reports, Output output);

}  // namespace zot::client
