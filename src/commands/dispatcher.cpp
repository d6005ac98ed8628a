#include "commands/dispatcher.h"

#include "commands/command_table.h"
#include "config/ip_filter.h"

namespace zot {
namespace {

const Command* FindCommand(std::string_view name) {
    for (const Command& command : CommandTable()) {
        if (command.name == name) return &command;
    }
    return nullptr;
}

bool Permitted(Permission permission, const RequestContext& request) {
    const AgentSettings& settings = request.settings;
    VyString ignoredError;
    switch (permission) {
        case Permission::kManage:
            return settings.allowManage != 0 &&
                   IpInList(request.peerAddress, settings.manageAddr, ignoredError) != 0;
        case Permission::kUpgrade:
            return settings.allowUpdates != 0 &&
                   IpInList(request.peerAddress, settings.updateAddr, ignoredError) != 0;
        case Permission::kAnyone:
            break;
    }
    return true;
}

void Run(const Command& command, RequestContext& request, Reply& reply) {
    if (!Permitted(command.permission, request)) {
        reply.Start("600", "Operation is not allowed");
    } else if (command.check != nullptr) {
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
        Run(*command, request, reply);
        return true;
    }
    VyString message = VyString::Concat("Unknown command \"", name);
    message.Append('"');
    reply.Start("500", message);
    // The log gets a C string: what is behind a NUL in the name is not part of it.
    log.WriteLog(LogKind::kFailure, request.peerAddress, "Unknown command \"%s\"\n",
                 VyString(name).Terminate());
    return false;
}

}  // namespace zot
