// The client's side: a reply text taken apart, and what the agent would have to send for it. The
// escaping that both sides share must restore it exactly.
#include <cstdint>
#include <string>

#include "client/request_packet.h"
#include "fuzz/scratch.h"
#include "protocol/reply.h"
#include "protocol/request_text.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace zot;
    std::string_view text(reinterpret_cast<const char*>(data), size);
    VyString escaped = Escape(text);
    fuzz::Require(escaped.View().find_first_of("\r\n") == std::string_view::npos);
    bool hasEscapes =
        text.find("%0A") != std::string_view::npos || text.find("%0D") != std::string_view::npos;
    if (!hasEscapes) fuzz::Require(Unescape(escaped) == text);

    client::Answer answer;
    if (client::ParseReply(text, answer) == 0) return 0;
    Reply reply;
    reply.Start(answer.code);
    for (const std::string& line : answer.lines) reply.AppendLine(line);
    reply.Finish();
    fuzz::Require(reply.Text() == text);
    return 0;
}
