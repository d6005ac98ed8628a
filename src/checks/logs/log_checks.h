// The handlers of the text-log tests. Each takes the parameter lines of its request (everything
// after the command line) and builds the whole reply.
//
// Both replies begin with the result of the scan, the line found, a flag for whether another match
// follows (0 with findAll), position, last size, last modification time and file size. The server
// sends the first three of these four numbers with its next request.
#pragma once

#include <string_view>

#include "config/settings.h"
#include "protocol/reply.h"

namespace zot {

// "TEST-TextLog": 1 file name, may be a mask; 2 text or search expression, escaped; 3 position;
// 4 last size; 5 last modification time; 6 it is an expression; 7 findAll; 8 case-sensitive;
// 9 whole word. The line found is cut to 1024 characters; an expression that does not parse
// matches no line.
void TestTextLog(std::string_view params, const AgentSettings& settings, Reply& reply);

// "TEST-TextLog2": 1 file name, may be a mask; 2 to 4 position, last size, last modification time;
// 5 findAll; 6 to 9 criterion: escaped text, kind, case-sensitive, whole word; 10 number of further
// criteria; 11 to 14 the second one; 16 + 4 x number: resolve file macros. The reply goes on with a
// flag for whether the first criterion matched, and with the file name.
void TestTextLog2(std::string_view params, const AgentSettings& settings, Reply& reply);

}  // namespace zot
