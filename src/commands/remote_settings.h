// Changes to the settings by the server: SetSettings and its names on the wire.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "base/vystring.h"
#include "config/settings.h"
#include "protocol/reply.h"

namespace zot {

enum class WireKind {
    kText,
    kEscapedText,  // a text whose "%0D" and "%0A" stand for line breaks
    kNumber,
    kFlag,
};

// A setting that servers may change, under the name that they know it by.
struct WireSetting {
    std::string_view name;
    WireKind kind;
    VyString AgentSettings::*text = nullptr;  // for both kinds of text
    int32_t AgentSettings::*number = nullptr;
    bool AgentSettings::*flag = nullptr;
};

// All of them; the switches of the checks come last.
std::span<const WireSetting> WireSettings();

// The setting with exactly this name; nullptr if there is none.
const WireSetting* FindWireSetting(std::string_view name);

// Applies every line name=value of the request to a copy of the settings, saves the configuration
// file and publishes the copy, even when the save fails. Unknown names are ignored.
void SetSettings(std::string_view params, SettingsStore& store, Reply& reply);

}  // namespace zot
