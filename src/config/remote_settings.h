// Changing the settings from the server: SetSettings and its wire names.
#pragma once

#include <string_view>

#include "config/settings.h"
#include "protocol/reply.h"

namespace zot {

// Applies every line name=value of the request to a copy of the settings, saves the configuration
// file and publishes the copy, also when the save fails. Unknown names are ignored.
void SetSettings(std::string_view params, SettingsStore& store, Reply& reply);

}  // namespace zot
