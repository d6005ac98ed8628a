#include "commands/dispatcher.h"

#include <algorithm>
#include <cstddef>
#include <span>

#include "base/own_connections.h"
#include "base/peer_watch.h"
#include "base/vystring.h"
#include "commands/command_table.h"
#include "config/ip_filter.h"

namespace zot {
namespace {

constexpr std::string_view kNotAllowed = "Operation is not allowed";

bool MayAsk(const RequestContext& request, bool allowed, std::string_view addresses) {
    VyString ignoredError;
    // What arrives over the agent's own connection was written by somebody else.
    return allowed && IpInList(request.peerAddress, addresses, ignoredError) &&
           !IsOwnConnection(request.peerAddress, request.peerPort);
}

bool AnySwitchIsOn(const Command& command, const AgentSettings& settings) {
    return std::any_of(command.switches.begin(), command.switches.end(),
                       [&settings](auto enabled) { return settings.*enabled; });
}

// After a load that failed the agent can be without a password, and so open to everybody.
bool LacksPassword(const Command& command, const RequestContext& request, Log& log) {
    if (command.withoutPassword || !request.settings.password.Empty()) return false;
    log.WriteLogText(LogKind::kFailure, request.peerAddress,
                     "Operation is not allowed: no password is set\n");
    return true;
}

// Why the peer may not have this answered; empty when it may.
std::string_view Refusal(const Command& command, const RequestContext& request, Log& log) {
    if (LacksPassword(command, request, log)) return kNotAllowed;
    const AgentSettings& settings = request.settings;
    bool permitted = true;
    switch (command.permission) {
        case Permission::kAnyone:
            break;
        case Permission::kTest:
            return AnySwitchIsOn(command, settings) ? "" : "test is not allowed";
        case Permission::kAction:
            return AnySwitchIsOn(command, settings) ? "" : "operation is not allowed";
        case Permission::kManage:
            permitted = MayAsk(request, settings.allowManage, settings.manageAddr);
            break;
        case Permission::kUpgrade:
            permitted = MayAsk(request, settings.allowUpdates, settings.updateAddr);
            break;
    }
    return permitted ? "" : kNotAllowed;
}

void Run(const Command& command, RequestContext& request, Log& log, Reply& reply) {
    std::string_view refusal = Refusal(command, request, log);
    if (!refusal.empty()) return reply.Start("600", refusal);
    if (command.mayTakeLong) request.control.BeforeLongWork();
    if (command.check != nullptr) {
        // An action is finished whether or not anybody still waits for the answer.
        bool isAction = command.permission == Permission::kAction;
        WorkFor peer(isAction ? nullptr : WorkFor::Current());
        command.check(request.params, request.settings, reply);
    } else {
        command.process(request, reply);
    }
}

}  // namespace

bool Dispatch(std::string_view requestText, RequestContext& request, Log& log, Reply& reply) {
    if (requestText.find('\r') == std::string_view::npos) {
        log.WriteLogText(LogKind::kFailure, request.peerAddress,
                         "EndOfTransmission signal missed\n");
        reply.Start("502", "EndOfTransmission signal missed");
        return false;
    }
    size_t lineEnd = requestText.find('\n');
    std::string_view name = TrimView(requestText.substr(0, lineEnd));
    request.params = {};
    if (lineEnd != std::string_view::npos) request.params = requestText.substr(lineEnd + 1);
    if (name.empty()) {
        log.WriteLogText(LogKind::kFailure, request.peerAddress, "Void request received\n");
        reply.Start("500", "Void request received");
        return false;
    }
    if (const Command* command = FindCommand(name)) {
        Run(*command, request, log, reply);
        return true;
    }
    VyString message = VyString::Concat("Unknown command \"", name);
    message.Append('"');
    reply.Start("500", message);
    // The log takes a C string: anything after a NUL is not part of the name.
    log.WriteLog(LogKind::kFailure, request.peerAddress, "Unknown command \"%s\"\n",
                 VyString(name).Terminate());
    return false;
}

}  // namespace zot
