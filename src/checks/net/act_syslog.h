// ACT-Syslog: sends a syslog message as one UDP datagram.
#pragma once

#include <cstdint>
#include <ctime>
#include <string_view>

#include "base/vystring.h"
#include "config/settings.h"
#include "protocol/reply.h"

namespace zot {

// The bytes of the datagram for a local time and the sender's IPv4 address (network byte order).
VyString BuildSyslogMessage(const std::tm& localTime, uint32_t address, int32_t facility,
                            int32_t severity, std::string_view text);

// `params`, one a line: host, port, facility, severity (at most 7), message (line breaks escaped).
void ActSyslog(std::string_view params, const AgentSettings& settings, Reply& reply);

}  // namespace zot
