// Changes of settings as people write them, checked before they are sent.
#pragma once

#include <istream>
#include <string>
#include <string_view>
#include <vector>

#include "client/invocation.h"

namespace zot::client {

struct SettingChange {
    std::string name;
    std::string value;  // as in the request, line breaks escaped

    std::string Line() const { return name + "=" + value; }
};

// Reads NAME=VALUE. The value of Password is "-" for the first line of standard input, or "@FILE"
// for that of a file: on the command line others could see it. False with the error text when the
// agent would refuse it, misread it, or could not be started again with it.
bool ReadChange(const Console& console, const std::string& word, SettingChange& change,
                std::string& error);

// Why these changes would lock out the peer that asks from `ownAddress`, or contain what the agent
// does not understand; empty when they do not. `settings` is the agent's reply to GetSettings.
std::string LockOut(const Answer& settings, const std::vector<SettingChange>& changes,
                    const std::string& ownAddress);
// Whether LockOut could object to changes of this setting.
bool IsAboutAccess(std::string_view name);

}  // namespace zot::client
