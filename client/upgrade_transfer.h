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

// What an agent accepts, in bytes.
constexpr size_t kMinModuleSize = 101;
constexpr size_t kMaxModuleSize = 10485759;

// Called during the transfer, with the bytes sent so far.
using TransferProgress = std::function<void(size_t sent)>;

// Sends the executable and receives the agent's last word. The target's time-out limits each step
// (connecting, a reply, a piece of the data) but not the whole: a transfer that breaks off leaves
// an agent that refuses others until it is restarted. True with the agent's last reply, even a
// refusal; false with the error text.
bool TransferModule(const Target& target, std::string_view module, const TransferProgress& progress,
                    Answer& answer, std::string& error);

}  // namespace zot::client
