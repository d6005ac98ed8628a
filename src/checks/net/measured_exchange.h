// What the tests of network services share: the buffer for an answer, the time that an exchange
// took, and the reply with both.
#pragma once

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "protocol/reply.h"

namespace zot {

inline constexpr int32_t kMaxReceive = 8192;

using ReceiveBuffer = std::array<char, kMaxReceive>;

// The part of the buffer that a request asks for; nothing for a length below 1.
inline std::span<char> Wanted(ReceiveBuffer& buffer, int32_t length) {
    return {buffer.data(), static_cast<size_t>(std::clamp(length, 0, kMaxReceive))};
}

// The result of an exchange, as in base/sockets.h, and the milliseconds that it took.
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

// "200", the time and the bytes received; or "301", the error text and the result code.
void ReplyOutcome(Outcome outcome, std::string_view errorText, std::span<const char> received,
                  Reply& reply);

}  // namespace zot
