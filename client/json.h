// A reply as JSON (RFC 8259).
#pragma once

#include <string>

#include "client/request_packet.h"

namespace zot::client {

// {"code":"200","values":["...",...]} on one line. Replies carry any bytes, JSON only UTF-8: each
// byte that is not part of a well-formed character becomes U+FFFD.
std::string AnswerAsJson(const Answer& answer);

}  // namespace zot::client
