// The subcommands of zotq. Each takes the words behind the options, prints, and returns an
// ExitStatus.
#pragma once

#include "client/invocation.h"

namespace zot::client {

// COMMAND [PARAM ...]: sends a request as it stands and prints the reply.
int SendRequest(Invocation& call);
// upgrade FILE: replaces the agent's executable and waits for the new agent.
int UpgradeAgent(Invocation& call);
// settings: prints the settings for people.
int ShowSettings(Invocation& call);
// set NAME=VALUE ...: changes settings, all or none of them.
int ChangeSettings(Invocation& call);

}  // namespace zot::client
