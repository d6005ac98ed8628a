// The client's side of sending an agent its new executable.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "client/agent_client.h"
#include "client/request_packet.h"

namespace zot::client {

// What an agent takes, in bytes.
constexpr size_t kMinModuleSize = 101;
constexpr size_t kMaxModuleSize = 10485759;

// Called as the transfer goes on, with the bytes sent so far.
using TransferProgress = std::function<void(size_t sent)>;

// Sends the executable and receives what the agent says in the end. The target's time-out bounds
// each step (connecting, a reply, a piece of the data) but not the whole: a transfer that is broken
// off leaves the agent refusing others until it is restarted. True with the agent's last reply,
// also when that is a refusal; false with the error text.
bool TransferModule(const Target& target, std::string_view module, const TransferProgress& progress,
                    Answer& answer, std::string& error);

}  // namespace zot::client
