#include <netinet/in.h>

#include <chrono>
#include <cstdint>
#include <string_view>
#include <thread>

#include "base/escaping.h"
#include "base/numbers.h"
#include "base/own_connections.h"
#include "base/owners.h"
#include "base/sockets.h"
#include "base/vystring.h"
#include "checks/net/net_checks.h"
#include "config/settings.h"
#include "protocol/reply.h"
#include "protocol/request_text.h"

namespace zot {
namespace {

// How long a TCP peer may take to end its side.
constexpr int32_t kFinishMs = 2000;

// One socket for both blocks, so that a UDP peer sees them come from the same port.
class Sender {
  public:
    explicit Sender(bool tcp) : tcp_(tcp) {}

    // Both return above 0 on success, otherwise a result code and its text.
    int32_t Open(std::string_view host, int32_t port, VyString& errorText) {
        return tcp_ ? TcpConnect(stream_, host, port, kDefaultTcpTimeoutMs, errorText)
                    : UdpOpen(datagrams_, address_, host, port, 0, errorText);
    }
    int32_t Send(std::string_view data, VyString& errorText) {
        return tcp_ ? TcpSend(stream_.Get(), data, kDefaultTcpTimeoutMs, errorText)
                    : UdpSend(datagrams_.Get(), address_, data, errorText);
    }

    void Finish() {
        if (tcp_) TcpFinish(stream_.Get(), kFinishMs);
    }

  private:
    bool tcp_;
    OutgoingSocket stream_;
    UniqueFd datagrams_;
    sockaddr_in address_{};
};

}  // namespace

void ActTcpUdpSend(std::string_view params, const AgentSettings& /*settings*/, Reply& reply) {
    std::string_view host = OwnLine(params, 1);
    // Decoded as in every other request that sends data: a line cannot contain a line break.
    VyString first = Unescape(RawLine(params, 4));
    VyString second = Unescape(OptionalRawLine(params, 6));
    int32_t port = 0;
    int32_t pauseSeconds = 0;
    if (host.empty() || first.Empty() || !ParseInt(GetLine(params, 2), port) ||
        !ParseInt(GetLine(params, 5), pauseSeconds)) {
        return reply.Start("501", "Wrong parameter");
    }

    Sender sender(GetLine(params, 3) == "0");
    VyString errorText;
    if (sender.Open(host, port, errorText) < 1 || sender.Send(first, errorText) < 1) {
        return reply.Start("301", errorText);
    }
    if (!second.Empty()) {
        if (pauseSeconds > 0) std::this_thread::sleep_for(std::chrono::seconds(pauseSeconds));
        if (sender.Send(second, errorText) < 1) return reply.Start("301", errorText);
    }
    sender.Finish();
    reply.Start("200", "Data has been sent");
}

}  // namespace zot
