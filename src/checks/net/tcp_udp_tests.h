// TEST-TCP and TEST-UDP: does a service answer, how fast, and with what.
#pragma once

#include <string_view>

#include "config/settings.h"
#include "protocol/reply.h"

namespace zot {

// `params` is the parameter text of the request, one parameter a line: host, port, time-out in
// milliseconds, data to send (line breaks escaped), number of bytes to receive. The reply holds the
// milliseconds it took and what was received, or the error text and the result code.
void TestTcp(std::string_view params, const AgentSettings& settings, Reply& reply);

// The same over UDP; the number of attempts stands before the data, which must not be empty. The
// time-out is one of whole seconds, at least one, for each attempt.
void TestUdp(std::string_view params, const AgentSettings& settings, Reply& reply);

}  // namespace zot
