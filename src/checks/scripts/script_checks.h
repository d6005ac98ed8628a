// The handlers that answer by running a script or a program. `params` is the request text after its
// first line; each fills the reply with a status code and its values.
#pragma once

#include <string_view>

#include "config/settings.h"
#include "protocol/reply.h"

namespace zot {

// How many processes match a name, according to the administrator's script.
void TestProcess(std::string_view params, const AgentSettings& settings, Reply& reply);
// The running processes, according to the administrator's script.
void GetProcessesList(std::string_view params, const AgentSettings& settings, Reply& reply);
// CPU usage, according to the administrator's script.
void TestCpu(std::string_view params, const AgentSettings& settings, Reply& reply);
// The exit code of a program.
void TestExternalPrg(std::string_view params, const AgentSettings& settings, Reply& reply);
// Result and output of a script that comes with the request.
void TestShellScript(std::string_view params, const AgentSettings& settings, Reply& reply);
// Runs a command as an action.
void ActExternalCmd(std::string_view params, const AgentSettings& settings, Reply& reply);

}  // namespace zot
