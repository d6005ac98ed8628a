// The handlers of the network tests and actions.
#pragma once

#include <string_view>

#include "config/settings.h"
#include "protocol/reply.h"

namespace zot {

// "TEST-TCP": does a service answer, how fast, and with what. Lines: host, port, time-out in
// milliseconds, data to send (line breaks escaped), number of bytes to receive. Replies with the
// milliseconds it took and what was received, or with the error text and the result code.
void TestTcp(std::string_view params, const AgentSettings& settings, Reply& reply);

// "TEST-UDP": the same over UDP, with the number of attempts before the data, which must not be
// empty. The time-out counts in whole seconds, at least one, for each attempt.
void TestUdp(std::string_view params, const AgentSettings& settings, Reply& reply);

// "ACT-Syslog": sends one datagram. Lines: host, port, facility, severity (at most 7), message
// (line breaks escaped).
void ActSyslog(std::string_view params, const AgentSettings& settings, Reply& reply);

// "ACT-TCPUDPsend". Lines: host, port, protocol ("0" is TCP, all else UDP), first block, pause in
// seconds, second block or nothing. Line breaks inside a block are escaped. Blocks the calling
// thread for the pause.
void ActTcpUdpSend(std::string_view params, const AgentSettings& settings, Reply& reply);

}  // namespace zot
