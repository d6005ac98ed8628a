// Writes the settings back into the configuration file.
#pragma once

#include <functional>

#include "base/vystring.h"
#include "config/settings.h"

namespace zot {

// Writes the settings back into the file, keeping comments, unknown keys and the order of lines.
// False with `errorText`; the old file stays whole until the new one is on the disk.
bool SaveConfig(AgentSettings& settings, VyString& errorText);

// Changes the published settings and saves them in one step, under the configuration mutex; the
// change takes effect even if the save fails. Refused, with nothing changed, after a load that
// failed (what is in force then must not replace a good file), and for a password that the file
// could not hold completely.
bool SaveConfigLocked(SettingsStore& store, const std::function<void(AgentSettings&)>& change,
                      VyString& errorText);

}  // namespace zot
