// What the handlers of configured scripts share.
#pragma once

#include <string_view>

#include "base/vystring.h"
#include "checks/scripts/script_output.h"
#include "checks/scripts/temp_name.h"
#include "config/settings.h"
#include "protocol/reply.h"

namespace zot {

// Whether the script is set and is a regular file; otherwise fills the reply. `label` names the
// script in the message.
bool ScriptIsUsable(const VyString& script, std::string_view label, Reply& reply);

// Pauses before a script is started, as long as the settings ask for.
void PauseBeforeScript(const AgentSettings& settings);

// Lets the shell run `command` with all its output going to `file`, and opens the result. On
// failure fills the reply and returns false.
bool RunForOutput(std::string_view command, const AgentSettings& settings, TempFile& file,
                  ScriptOutput& output, Reply& reply);

}  // namespace zot
