#include <cstdint>
#include <span>
#include <string_view>

#include "base/escaping.h"
#include "base/numbers.h"
#include "base/sockets.h"
#include "base/vystring.h"
#include "checks/net/measured_exchange.h"
#include "checks/net/net_checks.h"
#include "config/settings.h"
#include "protocol/reply.h"
#include "protocol/request_text.h"

namespace zot {

void TestTcp(std::string_view params, const AgentSettings& /*settings*/, Reply& reply) {
    int32_t port = 0;
    int32_t timeoutMs = 0;
    int32_t receiveLength = 0;
    if (!ParseInt(GetLine(params, 2), port) || !ParseInt(GetLine(params, 3), timeoutMs) ||
        !ParseInt(GetLine(params, 5), receiveLength)) {
        return reply.Start("501", "Wrong parameter");
    }
    if (timeoutMs == 0) timeoutMs = kDefaultTcpTimeoutMs;

    VyString data = Unescape(RawLine(params, 4));
    ReceiveBuffer buffer;
    std::span<char> wanted = Wanted(buffer, receiveLength);
    VyString errorText;
    Outcome outcome = Measure(
        [&] { return TcpExchange(GetLine(params, 1), port, timeoutMs, data, wanted, errorText); });
    ReplyOutcome(outcome, errorText, wanted, reply);
}

}  // namespace zot
