#include "client/failure.h"

namespace zot::client {
namespace {

constexpr std::string_view kWords[] = {
    "ok",          "agent_code", "resolve", "connect_refused", "connect_timeout",
    "unreachable", "closed",     "timeout", "bad_reply",       "local",
};

}  // namespace

bool IsReply(Failure failure) {
    return failure == Failure::kNone || failure == Failure::kAgentCode;
}

std::string_view FailureWord(Failure failure) { return kWords[static_cast<size_t>(failure)]; }

std::span<const std::string_view> FailureWords() { return std::span(kWords).subspan(1); }

}  // namespace zot::client
