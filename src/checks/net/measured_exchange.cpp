#include "checks/net/measured_exchange.h"

namespace zot {

void ReplyOutcome(Outcome outcome, std::string_view errorText, std::span<const char> received,
                  Reply& reply) {
    if (outcome.result < 1) {
        // When the peer closed or sent nothing, the text is an empty line, but still a line.
        reply.Start("301", errorText);
        reply.AppendInt(outcome.result);
        return;
    }
    reply.Start("200");
    reply.AppendInt(outcome.elapsedMs);
    // If nothing was to be received the result is not a number of bytes in the buffer.
    size_t length = std::min(received.size(), static_cast<size_t>(outcome.result));
    reply.AppendLine({received.data(), length}, Escaping::kLineBreaks);
}

}  // namespace zot
