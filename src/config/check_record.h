// The checks and actions of the agent, one record each: the switch in the settings, what the
// configuration and servers call it, and the commands that ask for it. The keys of the
// configuration, SetSettings, GetInfo and the dispatcher all read this table.
#pragma once

#include <array>
#include <span>
#include <string_view>

#include "config/config_keys.h"
#include "config/settings.h"

namespace zot {

class Reply;

// A check or an action: parameter text, settings and reply are all that it sees. It need not look
// at its switch: while that is off, the dispatcher answers for it.
using CheckHandler = void (*)(std::string_view params, const AgentSettings& settings, Reply& reply);

struct CheckCommand {
    std::string_view name;  // as requests spell it
    CheckHandler handler = nullptr;
    // Whether others must be able to get their answers while the handler works: it runs programs,
    // asks the network, or reads as much as there is.
    bool mayTakeLong = true;
};

struct CheckRecord {
    enum class Kind { kTest, kAction };

    Kind kind = Kind::kTest;
    std::string_view key;                       // of the configuration file; empty: it has none
    bool AgentSettings::*enabled = nullptr;     // the switch; every record has one
    bool enabledByDefault = true;               // what every load resets the switch to
    SaveRule save = SaveRule::kAlways;          // of the key
    std::string_view name;                      // of the switch, in SetSettings and GetInfo
    bool remote = true;                         // SetSettings may change the switch
    int infoPlace = 0;                          // in GetInfo's list of the kind, from 1; 0: nowhere
    std::array<CheckCommand, 2> commands = {};  // what the switch allows; those that are not empty
};

// All records, in the order in which a save appends their keys. The rows stand where the handlers
// are known, in commands/check_table.cpp.
std::span<const CheckRecord> Checks();

}  // namespace zot
