// zot, the remote monitoring agent: start-up in the order that an operator reads on the terminal.

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <exception>
#include <string>
#include <string_view>
#include <utility>

#include "agent/agent_control.h"
#include "agent/command_line.h"
#include "agent/daemon.h"
#include "agent/front.h"
#include "agent/handover.h"
#include "agent/listener.h"
#include "agent/self_check.h"
#include "agent/service_manager.h"
#include "agent/signals.h"
#include "base/children.h"
#include "base/descriptor_limit.h"
#include "base/mapped_bytes.h"
#include "base/owners.h"
#include "base/platform/system.h"
#include "base/sockets.h"
#include "base/vystring.h"
#include "commands/agent_info.h"
#include "config/config_check.h"
#include "config/config_file.h"
#include "config/log.h"
#include "config/settings.h"

namespace {

constexpr int kExitConfig = 1;
constexpr std::string_view kCheckConfig = "--check-config";
constexpr int kExitDaemon = 2;

void PrintBanner() {
    constexpr char kRule[] = "-------------------------------------------------------------";
    std::puts(kRule);
    std::puts(" Application:  ZOT (Remote Monitoring Agent for Tarnveil)");
    std::printf(" Version:      %s for %s\n", zot::kAgentVersion, zot::kAgentPlatform);
    std::printf(" Developer:    %s\n", zot::kDeveloperName);
    std::printf(" Web:          %s\n", zot::kDeveloperWeb);
    std::printf(" E-mail:       %s\n", zot::kDeveloperMail);
    std::puts(kRule);
}

bool LoadSettings(zot::SettingsStore& store) {
    zot::VyString message;
    bool loaded = zot::LoadConfigLocked(store, message);
    if (!loaded) {
        std::printf("Error\n%s\nPlease check '%s' file\n\n", message.Terminate(),
                    store.Snapshot()->configPath);
    } else if (message.Empty()) {
        std::puts("Ok");
    } else {
        std::printf("Warning: %s\n", message.Terminate());
    }
    return loaded;
}

// Shows on the terminal that a port is in use, before the agent detaches from the terminal.
bool TryListening(const zot::AgentSettings& settings, zot::PortUse use) {
    std::printf("Sock testing .. ");
    zot::VyString errorText;
    zot::UniqueFd socket = zot::OpenListeningSocket(settings, errorText, use);
    if (!socket) {
        std::printf("TCP listen error:\n%s\n\n", errorText.Terminate());
        return false;
    }
    std::puts("Ok");
    shutdown(socket.Get(), SHUT_RDWR);
    return true;
}

// The parent on the terminal waits until the descriptor is closed.
bool Detach(zot::UniqueFd& parent) {
    if (zot::Daemonize(parent)) return true;
    char text[256];
    zot::SystemErrorText(errno, text, sizeof text);
    std::fprintf(stderr, "Error initializing daemon: %s\n", text);
    return false;
}

// Anybody who can write there can put files in the way of scripts and upgrades.
void WarnOfSharedTmpDir(const zot::AgentSettings& settings, zot::Log& log) {
    zot::VyString path(settings.tmpDir.Empty() ? std::string_view("/") : settings.tmpDir.View());
    struct stat info {};
    if (stat(path.Terminate(), &info) != 0) return;
    const bool own = info.st_uid == geteuid() || info.st_uid == 0;
    if (own && (info.st_mode & (S_IWGRP | S_IWOTH)) == 0) return;
    log.WriteLog(zot::LogKind::kFailure, 0, "Others can write to the temporary directory %s\n",
                 path.Terminate());
}

int CheckConfigs(char** paths) {
    int code = 0;
    for (; *paths != nullptr; ++paths) {
        if (!zot::ReportConfigMistakes(*paths)) code = kExitConfig;
    }
    return code;
}

// Everything up to the accept loop, which does not return. Returns an exit code when it is not
// reached.
int Run(int argc, char** argv, char** envp, zot::HandOver& handOver) {
    if (argc > 2 && argv[1] == kCheckConfig) return CheckConfigs(argv + 2);
    PrintBanner();
    std::printf("Command line checking .. ");
    zot::AgentSettings commandLine;
    zot::ParseCommandLine(argc, argv, commandLine);
    if (!commandLine.interactive) zot::CloseInheritedDescriptors(handOver.Descriptors());
    const zot::PortUse portUse =
        handOver.Expected() ? zot::PortUse::kReserved : zot::PortUse::kFree;

    // These live in a frame that exit() does not unwind: sessions use them to the end.
    zot::SettingsStore store;
    zot::Log log(store);
    zot::AgentControl control(log);
    zot::ConnectionCounters counters;
    zot::AgentServices services = {store, log, control, counters};
    zot::PidFile pidFile;
    zot::AlternateStack faultStack;
    store.Change([&commandLine](zot::AgentSettings& settings) {
        settings = commandLine;
        return true;
    });

    std::printf("Ok\nSettings checking .. ");
    if (!LoadSettings(store)) {
        if (handOver.Expected()) {
            // What took a daemon's place has no terminal to tell it.
            zot::VyString reason = store.Snapshot()->loadError.ReplaceAll("\n", " ", true);
            log.WriteLog(zot::LogKind::kFailure, 0, "Restart failed: %s\n", reason.Terminate());
        }
        return kExitConfig;
    }
    std::puts("CPU testing .. Ok");
    if (commandLine.debug) zot::PrintSizes();
    zot::RunCipherChecks();
    if (!TryListening(*store.Snapshot(), portUse)) return zot::kExitListen;

    zot::UniqueFd parent;
    if (!commandLine.interactive) {
        if (!Detach(parent)) return kExitDaemon;
        zot::InstallHangupHandler();
    }
    const zot::StartArguments arguments = {argv, envp, commandLine.port};
    zot::InstallTerminateHandler(control);
    zot::InstallCrashHandler(services, pidFile, arguments);
    zot::IgnoreWriteSignals();
    zot::GuardMappedBytes();
    int descriptorLimit = zot::RaiseDescriptorLimit();

    zot::VyString errorText;
    zot::UniqueFd socket = zot::OpenListeningSocket(*store.Snapshot(), errorText, portUse);
    if (!socket) {
        std::printf("TCP listen error: %s\n\n", errorText.Terminate());
        return zot::kExitListen;
    }
    pidFile.Write(*store.Snapshot(), log);
    zot::ServiceManager().ReportReady();
    handOver.Complete();
    parent.Reset();
    zot::ExpectForeignChildren();
    WarnOfSharedTmpDir(*store.Snapshot(), log);
    log.WriteLogText(zot::LogKind::kStatus, 0, "Listening...\n");
    zot::Listener(services, std::move(socket), pidFile, arguments, descriptorLimit).Run();
}

}  // namespace

int main(int argc, char** argv, char** envp) {
    zot::OpenStandardDescriptors();
    zot::SetUsualSignals();
    zot::LimitFreedMemory();
    // Line by line, even into a pipe, so that a reader sees each line as soon as it is complete.
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    try {
        zot::HandOver handOver(envp);
        return Run(argc, argv, envp, handOver);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "Cannot start: %s\n", error.what());
        return kExitConfig;
    }
}
