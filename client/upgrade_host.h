// Upgrades the agent of one host: sends nothing that cannot run there, and succeeds only with a new
// process that answers.
#pragma once

#include <chrono>
#include <string>
#include <string_view>

#include "client/request_packet.h"
#include "client/target.h"
#include "client/upgrade_transfer.h"

namespace zot::client {

struct UpgradeOrders {
    std::string_view module;
    bool force = false;                         // send even what looks wrong
    std::chrono::milliseconds patience{30000};  // for the new agent, after the transfer
};

struct UpgradeResult {
    enum class Kind {
        kDone,
        kUnfit,    // refused before anything was sent
        kRefused,  // the agent answered with another code: `answer`
        kFailed,   // no reply, or no new agent
    };
    Kind kind = Kind::kFailed;
    Answer answer;        // the agent's last reply
    std::string message;  // why it failed
    std::string version;  // of the new agent
    double seconds = 0;   // from the end of the transfer to its first answer
};

// Waits until the result is known. A new agent shows in its count of connections, which begins
// again with the process. Where the agent's own log reports an upgrade that was undone, and can be
// read, that counts.
UpgradeResult UpgradeHost(const Target& target, const UpgradeOrders& orders,
                          const TransferProgress& progress);

}  // namespace zot::client
