// The replies of name and value, GetInfo and GetSettings, as records.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "client/replies.h"

namespace zot::client {

// The fields of GetInfo: names as in the reply, "agent_name" for AgentName; also "system", the
// short form of running_os ("Linux 6.1"), and the enabled tests and actions as lists.
Record ReadInfo(const Answer& answer);

// The fields of GetSettings: names as in the reply, and a flag for each test and each action under
// its own name ("cpu_usage", labelled "CPU Usage"). The password is hidden.
Record ReadSettings(const Answer& answer);

// The entries of a list as it travels, without the blanks around them.
std::vector<std::string> EntriesOf(std::string_view escaped);

std::vector<std::string> InfoFieldNames();
std::vector<std::string> SettingsFieldNames();

// Shown instead of a password that is set.
inline constexpr const char* kHiddenPassword = "********";

}  // namespace zot::client
