#include "checks/net/measured_exchange.h"

namespace zot {

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

}  // namespace zot
