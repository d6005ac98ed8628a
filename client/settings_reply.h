// The replies of name and value, GetInfo and GetSettings, as records.
#pragma once

#include <string>
#include <vector>

#include "client/replies.h"

namespace zot::client {

// What GetInfo tells: names as they travel, "agent_name" for AgentName; beside them "system", the
// short form of running_os ("Linux 6.1"), and the enabled tests and actions as lists.
Record ReadInfo(const Answer& answer);

// What GetSettings tells of the settings: names as they travel, and a flag for each test and each
// action under its own name ("cpu_usage", labelled "CPU Usage"). The password is hidden.
Record ReadSettings(const Answer& answer);

std::vector<std::string> InfoFieldNames();
std::vector<std::string> SettingsFieldNames();

// What stands for a password that is set.
inline constexpr const char* kHiddenPassword = "********";

}  // namespace zot::client
