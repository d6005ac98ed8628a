// The configuration file: key=value lines, loaded into AgentSettings and written back by
// SetSettings.
#pragma once

#include <functional>

#include "base/vystring.h"
#include "config/settings.h"

namespace zot {

// Fills `settings` from the file named by its configPath. False with the reasons in `errorText`;
// what was applied before a failure stays. A warning alone, also in `errorText`, is no failure.
bool LoadConfig(AgentSettings& settings, VyString& errorText);

// LoadConfig as one change of the published settings, under the configuration mutex.
bool LoadConfigLocked(SettingsStore& store, VyString& errorText);

// Writes the settings back into the file, keeping comments, unknown keys and the order of lines.
// False with `errorText`; the old file stays whole until the new one is on the disk.
bool SaveConfig(AgentSettings& settings, VyString& errorText);

// Changes the published settings and saves them in one step, under the configuration mutex; the
// change counts also when the save fails.
bool SaveConfigLocked(SettingsStore& store, const std::function<void(AgentSettings&)>& change,
                      VyString& errorText);

// Derives activeFilter, script paths and tmpDir, and exports TMPDIR when its value changes.
void PostProcessConfig(AgentSettings& settings, VyString& errorText);

}  // namespace zot
