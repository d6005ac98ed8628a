#include "checks/net/syslog.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdint>
#include <cstdio>
#include <ctime>
#include <string_view>

#include "base/escaping.h"
#include "base/numbers.h"
#include "base/sockets.h"
#include "base/vystring.h"
#include "checks/net/net_checks.h"
#include "config/settings.h"
#include "protocol/reply.h"
#include "protocol/request_text.h"

namespace zot {
namespace {

constexpr int32_t kMaxSeverity = 7;
constexpr std::string_view kTag = "VY ZOT";
constexpr const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                   "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

}  // namespace

VyString BuildSyslogMessage(const std::tm& localTime, uint32_t address, int32_t facility,
                            int32_t severity, std::string_view text) {
    // There is no blank before the day: a two-digit day follows the month's name directly, and only
    // the padding of "%2d" separates a single digit. Receivers parse this form.
    char head[64];
    std::snprintf(head, sizeof head, "<%lld>%s%2d %2.2d:%2.2d:%2.2d ",
                  static_cast<long long>(facility) * 8 + severity, kMonths[localTime.tm_mon],
                  localTime.tm_mday, localTime.tm_hour, localTime.tm_min, localTime.tm_sec);
    char dotted[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &address, dotted, sizeof dotted);

    VyString message;
    message.Reserve(sizeof head + sizeof dotted + kTag.size() + text.size());
    message.Append(head);
    message.Append(dotted);
    message.Append(' ');
    message.Append(kTag);
    message.Append(": ");
    message.Append(text);
    return message;
}

void ActSyslog(std::string_view params, const AgentSettings& /*settings*/, Reply& reply) {
    std::string_view host = OwnLine(params, 1);
    int32_t port = 0;
    int32_t facility = 0;
    int32_t severity = 0;
    // Only the upper end of the severity is checked; negative numbers enter the priority.
    if (host.empty() || !ParseInt(GetLine(params, 2), port) ||
        !ParseInt(GetLine(params, 3), facility) || !ParseInt(GetLine(params, 4), severity) ||
        severity > kMaxSeverity) {
        return reply.Start("501", "Wrong parameter");
    }

    time_t now = time(nullptr);
    std::tm localTime{};
    localtime_r(&now, &localTime);
    VyString message = BuildSyslogMessage(localTime, LocalHostAddress(), facility, severity,
                                          Unescape(OptionalRawLine(params, 5)));
    VyString errorText;
    if (UdpRequest(host, port, 0, message, {}, errorText) < 1) {
        return reply.Start("301", errorText);
    }
    VyString done("Syslog: Data to ");
    done.Append(host);
    done.Append(" has been sent");
    reply.Start("200", done);
}

}  // namespace zot
