// The agent's one logging entry point: console, log of accepted connections, log of failures and
// verbose log, one write per line so that no reader ever sees half a line.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string_view>

#include "config/settings.h"

namespace zot {

enum class LogKind : int {
    kSuccess = 0,  // to okLogFile if logSuccess is 1
    kFailure = 1,  // to badLogFile if logFails is 1
    kTrace = 2,    // packet trace, dropped unless the debug flag is set
    kStatus = 3,   // verbose log only
};

// Dotted-decimal text of an IPv4 address (network byte order), NUL-terminated within `size`.
void AddressToText(uint32_t address, char* buffer, size_t size);

class Log {
  public:
    explicit Log(SettingsStore& settings);

    // Writes one line of the kind; `clientAddress` is an IPv4 address in network byte order, or 0
    // for the agent itself. The message brings its own line end; message and line are cut to 511
    // bytes. Never fails its caller and leaves errno alone.
    void WriteLog(LogKind kind, uint32_t clientAddress, const char* format, ...)
        __attribute__((format(printf, 4, 5)));
    // The same with a message taken literally.
    void WriteLogText(LogKind kind, uint32_t clientAddress, std::string_view message);

    // Writes a line of the agent itself from a signal handler: no lock, no allocation, no stdio,
    // about 6 KiB of stack. Async-signal-safe; `message` is NUL-terminated.
    void WriteFromSignal(const AgentSettings& settings, LogKind kind, const char* message) noexcept;

  private:
    void WriteLines(const AgentSettings& settings, LogKind kind, uint32_t clientAddress,
                    std::string_view message);

    SettingsStore& settings_;
    std::mutex logMutex_;
    // Seconds east of UTC when the last line was written: a signal handler may not ask.
    std::atomic<int32_t> utcOffset_{0};
};

// Appends one finished line to a file, which is created if needed. A path without "/" is placed
// beside the configuration file. Gives up silently, also where a write could make the agent wait.
// Async-signal-safe.
void AppendLogLine(const AgentSettings& settings, std::string_view path, std::string_view line);

}  // namespace zot
