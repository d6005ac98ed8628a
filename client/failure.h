// Why a host gave no good answer, as a closed set of words: tables, JSON and metrics use the same.
#pragma once

#include <span>
#include <string_view>

namespace zot::client {

enum class Failure {
    kNone,            // the agent answered 200
    kAgentCode,       // it answered another code
    kResolve,         // the name is unknown, or no name server answered in time
    kConnectRefused,  // nobody listens there
    kConnectTimeout,  // nothing answered the connection
    kUnreachable,     // no route
    kClosed,          // connected, then closed without a reply: wrong password, or the filter
    kTimeout,         // connected, but no complete reply in time
    kBadReply,        // what arrived is not a reply
    kLocal,           // our own trouble: password file, descriptors, memory
};

// Whether the agent answered, with whatever code.
bool IsReply(Failure failure);
// "ok", "agent_code", "resolve", ...
std::string_view FailureWord(Failure failure);
// All words but "ok", in the order of the enumeration.
std::span<const std::string_view> FailureWords();

}  // namespace zot::client
