// The configuration file: key=value lines, loaded into AgentSettings.
#pragma once

#include <optional>

#include "base/vystring.h"
#include "config/settings.h"

namespace zot {

// Fills `settings` from the file named by its configPath. False with the reasons in `errorText`;
// what was applied before a failure stays. A warning alone, also in `errorText`, is not a failure.
bool LoadConfig(AgentSettings& settings, VyString& errorText);

// LoadConfig as one change of the published settings, under the configuration mutex.
bool LoadConfigLocked(SettingsStore& store, VyString& errorText);
// The same for a caller that must not wait: returns nothing, and does nothing, while another change
// is running.
std::optional<bool> TryLoadConfig(SettingsStore& store, VyString& errorText);

// Derives activeFilter, script paths and tmpDir, and exports TMPDIR when its value changes.
void PostProcessConfig(AgentSettings& settings, VyString& errorText);

}  // namespace zot
