// Upgrading the agent of one host: nothing is sent that cannot run there, and success is a new
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
    bool force = false;                         // send also what does not look right
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
    std::string message;  // why it is not done
    std::string version;  // of the new agent
    double seconds = 0;   // from the end of the transfer to its first answer
};

// Waits until it is known. An agent is told from the next by its count of connections, which begins
// anew with the process; where the agent's own log tells of an upgrade that was undone, and may be
// read, it is believed.
UpgradeResult UpgradeHost(const Target& target, const UpgradeOrders& orders,
                          const TransferProgress& progress);

}  // namespace zot::client
