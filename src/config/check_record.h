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

// A check or an action: it sees only parameter text, settings and reply. It need not look at its
// switch: while that is off, the dispatcher answers.
using CheckHandler = void (*)(std::string_view params, const AgentSettings& settings, Reply& reply);

struct CheckCommand {
    std::string_view name;  // as requests spell it
    CheckHandler handler = nullptr;
    // Whether others must be able to get answers while the handler works: it runs programs, asks
    // the network, or reads data of any size.
    bool mayTakeLong = true;
};

struct CheckRecord {
    enum class Kind { kTest, kAction };

    Kind kind = Kind::kTest;
    std::string_view key;                       // of the configuration file; empty if it has none
    bool AgentSettings::*enabled = nullptr;     // the switch; every record has one
    bool enabledByDefault = true;               // every load resets the switch to this
    SaveRule save = SaveRule::kAlways;          // of the key
    std::string_view name;                      // of the switch, in SetSettings and GetInfo
    bool remote = true;                         // whether SetSettings may change the switch
    int infoPlace = 0;                          // in GetInfo's list of the kind, from 1; 0 for none
    std::array<CheckCommand, 2> commands = {};  // that the switch allows; empty ones are unused
};

// All records, in the order in which a save appends their keys. The rows are in
// commands/check_table.cpp, where the handlers are known.
std::span<const CheckRecord> Checks();

}  // namespace zot
