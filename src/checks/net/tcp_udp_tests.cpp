#include "checks/net/tcp_udp_tests.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <span>

#include "checks/net/sockets.h"
#include "protocol/request_text.h"

namespace zot {
namespace {

constexpr int32_t kMaxReceive = 8192;

using ReceiveBuffer = std::array<char, kMaxReceive>;

// The part of the buffer that a request asks for; a length below 1 asks for nothing.
std::span<char> Wanted(ReceiveBuffer& buffer, int32_t length) {
    return {buffer.data(), static_cast<size_t>(std::clamp(length, 0, kMaxReceive))};
}

struct Outcome {
    int32_t result = 0;
    int32_t elapsedMs = 0;
};

template <typename Exchange>
Outcome Measure(Exchange exchange) {
    using Clock = std::chrono::steady_clock;
    Clock::time_point start = Clock::now();
    int32_t result = exchange();
    auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
    return {result, static_cast<int32_t>(elapsed.count())};
}

void ReplyOutcome(Outcome outcome, std::string_view errorText, std::span<const char> received,
                  Reply& reply) {
    if (outcome.result < 1) {
        // The text is empty, but still a line, when the peer closed or answered with nothing.
        reply.Start("301", errorText);
        reply.AppendInt(outcome.result);
        return;
    }
    reply.Start("200");
    reply.AppendInt(outcome.elapsedMs);
    // With nothing to receive the result counts no bytes of the buffer.
    size_t length = std::min(received.size(), static_cast<size_t>(outcome.result));
    reply.AppendLine({received.data(), length}, Escaping::kLineBreaks);
}

}  // namespace

void TestTcp(std::string_view params, const AgentSettings& settings, Reply& reply) {
    if (settings.testTcp == 0) return reply.Start("600", "test is not allowed");

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

void TestUdp(std::string_view params, const AgentSettings& settings, Reply& reply) {
    if (settings.testUdp == 0) return reply.Start("600", "test is not allowed");

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
    // Below a second counts as a second; a negative time-out of whole seconds stays negative and
    // makes every wait end at once.
    int32_t timeoutSeconds = timeoutMs / 1000;
    if (timeoutSeconds == 0) timeoutSeconds = 1;

    ReceiveBuffer buffer;
    std::span<char> wanted = Wanted(buffer, receiveLength);
    VyString errorText;
    Outcome outcome;  // what a negative number of attempts, which makes none, reports
    for (int32_t attempt = 0; attempt < attempts && outcome.result < 1; ++attempt) {
        outcome = Measure([&] {
            return UdpRequest(GetLine(params, 1), port, timeoutSeconds, data, wanted, errorText);
        });
    }
    ReplyOutcome(outcome, errorText, wanted, reply);
}

}  // namespace zot
