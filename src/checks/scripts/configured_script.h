// What the handlers of configured scripts share.
#pragma once

#include <string_view>

#include "base/vystring.h"
#include "config/settings.h"
#include "protocol/reply.h"

namespace zot {

// Whether the script is set and is a regular file; otherwise fills the reply. `label` names the
// script in the message.
bool ScriptIsUsable(const VyString& script, std::string_view label, Reply& reply);

// The pause that the settings ask for before a script is started.
void PauseBeforeScript(const AgentSettings& settings);

}  // namespace zot
