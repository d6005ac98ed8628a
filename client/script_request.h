// A local script that is sent to a host to be run there, and its result.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "client/request_packet.h"

namespace zot::client {

// The parameters of TEST-ShellScript for the script in a local file. `seconds` is how long it may
// take. False with the error text when the file cannot be read or is empty, or when an argument
// cannot be sent: the agent's command line has no escapes and room for only so many words.
bool ScriptParams(const std::string& file, std::span<const std::string> arguments, int seconds,
                  std::vector<std::string>& params, std::string& error);

struct ScriptResult {
    std::string line;    // the result line without its mark; empty when it printed nothing
    std::string output;  // its first lines
    std::optional<int> exitCode;
};

// Reads a reply 200; false when it is too short.
bool ReadScriptResult(const Answer& answer, ScriptResult& result);

// How long, in seconds, the agent may spend on the script within a time limit: it counts whole
// seconds, and its reply must come in time.
int ScriptSeconds(int limitMs);

}  // namespace zot::client
