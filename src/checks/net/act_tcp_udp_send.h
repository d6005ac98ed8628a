// ACT-TCPUDPsend: sends one or two blocks of data over TCP or UDP.
#pragma once

#include <string_view>

#include "config/settings.h"
#include "protocol/reply.h"

namespace zot {

// `params`, one a line: host, port, protocol ("0" is TCP, all else UDP), first block, pause in
// seconds, second block or nothing. Line breaks inside a block are escaped. Blocks the calling
// thread for the pause.
void ActTcpUdpSend(std::string_view params, const AgentSettings& settings, Reply& reply);

}  // namespace zot
