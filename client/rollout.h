// Upgrading many hosts: a canary, then batch after batch, until all have the file or too many have
// failed.
#pragma once

#include <string>

#include "client/host_choice.h"
#include "client/invocation.h"

namespace zot::client {

// Returns an ExitStatus.
int RollOut(Invocation& call, const Choice& choice, const std::string& module);

}  // namespace zot::client
