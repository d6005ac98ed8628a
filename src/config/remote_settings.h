// Changing the settings from the server: SetSettings and its wire names.
#pragma once

#include <string_view>
#include <vector>

#include "config/settings.h"
#include "protocol/reply.h"

namespace zot {

// Applies every line name=value of the request to a copy of the settings, saves the configuration
// file and publishes the copy, also when the save fails. Unknown names are ignored.
void SetSettings(std::string_view params, SettingsStore& store, Reply& reply);

// The names that SetSettings knows, in no particular order. They live as long as the program.
std::vector<std::string_view> RemoteSettingNames();

}  // namespace zot
