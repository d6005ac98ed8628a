// The keys of the configuration file as one table: the name of each, the setting it means, what
// every load resets it to and whether a save writes it.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "base/vystring.h"
#include "config/settings.h"

namespace zot {

enum class ConfigKind {
    kString,
    kAddressList,  // a string: items separated by commas
    kFilterList,   // a string: entries separated by blanks in the file, by CR LF in memory
    kFlag,
    kNumber,
    kPort,  // a number that is taken only while it is still 0
};

enum class SaveRule {
    kAlways,   // rewritten where it is, appended where it is missing
    kInPlace,  // rewritten where it is, never appended
    kNever,    // its lines are copied unchanged
};

struct ConfigKey {
    std::string_view name;
    ConfigKind kind;
    SaveRule save;
    VyString AgentSettings::*text = nullptr;    // for a string
    bool AgentSettings::*flag = nullptr;        // for a flag
    int32_t AgentSettings::*number = nullptr;   // for a number
    const char* defaultText = nullptr;          // nullptr: a load keeps the old value
    std::optional<int32_t> defaultNumber = {};  // nothing: a load keeps the old value
    bool defaultFlag = false;
};

// All keys, those of the checks among them, in the order in which a save appends them.
std::span<const ConfigKey> ConfigKeys();

// The table entry of a key, in any case; nullptr if there is none.
const ConfigKey* FindConfigKey(std::string_view key);

// Sets everything that a load starts from; settings without a default keep their values.
void SetConfigDefaults(AgentSettings& settings);

}  // namespace zot
