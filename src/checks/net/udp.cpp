#include <algorithm>
#include <cstdint>
#include <span>
#include <string_view>

#include "base/escaping.h"
#include "base/numbers.h"
#include "base/peer_watch.h"
#include "base/sockets.h"
#include "base/vystring.h"
#include "checks/net/measured_exchange.h"
#include "checks/net/net_checks.h"
#include "config/settings.h"
#include "protocol/reply.h"
#include "protocol/request_text.h"

namespace zot {

void TestUdp(std::string_view params, const AgentSettings& /*settings*/, Reply& reply) {
    int32_t port = 0;
    int32_t timeoutMs = 0;
    int32_t attempts = 0;
    int32_t receiveLength = 0;
    VyString data = Unescape(RawLine(params, 5));
    if (!ParseInt(GetLine(params, 2), port) || !ParseInt(GetLine(params, 3), timeoutMs) ||
        !ParseInt(GetLine(params, 4), attempts) || !ParseInt(GetLine(params, 6), receiveLength) ||
        attempts == 0 || data.Empty()) {
        return reply.Start("501", "Wrong parameter");
    }
    // Less than a second counts as a second, or the attempts would become a flood.
    int32_t timeoutSeconds = std::max(timeoutMs / 1000, 1);

    ReceiveBuffer buffer;
    std::span<char> wanted = Wanted(buffer, receiveLength);
    VyString errorText;
    Outcome outcome;  // reported for a negative number of attempts, which makes none
    for (int32_t attempt = 0; attempt < attempts && outcome.result < 1 && !WorksInVain();
         ++attempt) {
        outcome = Measure([&] {
            return UdpRequest(GetLine(params, 1), port, timeoutSeconds, data, wanted, errorText);
        });
    }
    ReplyOutcome(outcome, errorText, wanted, reply);
}

}  // namespace zot
