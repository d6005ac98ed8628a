// The text of a syslog message.
#pragma once

#include <cstdint>
#include <ctime>
#include <string_view>

#include "base/vystring.h"

namespace zot {

// The bytes of the datagram, for a local time and the sender's IPv4 address (network byte order).
VyString BuildSyslogMessage(const std::tm& localTime, uint32_t address, int32_t facility,
                            int32_t severity, std::string_view text);

}  // namespace zot
