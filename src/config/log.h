// The agent's one entry point for logging: console, log of accepted connections, log of failures
// and verbose log. Lines reach a file whole, one or a batch of them in one write, so no reader ever
// sees half a line.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <mutex>
#include <span>
#include <string_view>

#include "config/console.h"
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

class LogBatch;

class Log {
  public:
    explicit Log(SettingsStore& settings);

    // Writes one line of the kind; `clientAddress` is an IPv4 address in network byte order, or 0
    // for the agent itself. The message brings its own line end; message and line are cut to 511
    // bytes. Never fails its caller and leaves errno unchanged. On a thread that has a LogBatch the
    // line waits there.
    void WriteLog(LogKind kind, uint32_t clientAddress, const char* format, ...)
        __attribute__((format(printf, 4, 5)));
    // The same with a message taken literally.
    void WriteLogText(LogKind kind, uint32_t clientAddress, std::string_view message);

    // Writes what waits in the calling thread's batch. Leaves errno unchanged.
    void Flush() noexcept;

    // Writes a line of the agent itself from a signal handler, after what waits in the batch of the
    // thread: no lock, no allocation, no stdio, about 12 KiB of stack. Async-signal-safe; `message`
    // is NUL-terminated.
    void WriteFromSignal(const AgentSettings& settings, LogKind kind, const char* message) noexcept;

  private:
    friend class LogBatch;
    void WriteLine(SettingsSnapshot settings, LogKind kind, uint32_t clientAddress,
                   std::string_view message);
    void TellOfBrokenLogs(const AgentSettings& settings, std::span<const int> errors) noexcept;
    void TellOfBrokenLog(const AgentSettings& settings, std::string_view path, int error) noexcept;

    SettingsStore& settings_;
    std::mutex logMutex_;             // the console and the files: all show the same order
    std::array<size_t, 3> toldOf_{};  // by log, under logMutex_: a hash of the broken file, or 0
    Console console_;
    // Seconds east of UTC when the last line was written: a signal handler cannot ask.
    std::atomic<int32_t> utcOffset_{0};
};

// While it lives, the lines of the calling thread wait here until they are flushed, so that all
// lines of a request cost one write. A late flush shows others the lines late, so flush before
// waiting, before long work, and before a connection goes to another thread or closes.
class LogBatch {
  public:
    explicit LogBatch(Log& log) noexcept;
    ~LogBatch();
    LogBatch(const LogBatch&) = delete;
    LogBatch& operator=(const LogBatch&) = delete;

  private:
    friend class Log;
    static constexpr size_t kMostLines = 32;

    struct Line {
        uint16_t start;
        uint16_t size;  // as it would be without a limit
        LogKind kind;
    };

    // Left uninitialised until it is written to: most batches need little of it.
    struct Room {
        char stamp[48];  // "[date time]\t "
        char text[8192];
        char console[512];
    };

    struct Lone {};  // a batch of one line, which the thread does not know of
    // cppcheck-suppress uninitMemberVarPrivate
    LogBatch(Log& log, Lone) noexcept : log_(log), lone_(true) {}

    void Add(LogKind kind, uint32_t clientAddress, std::string_view message);
    void MakeStamp();
    void Write() noexcept;
    void WriteFromSignal() noexcept;
    std::string_view ConsoleLine(const Line& line) noexcept;
    // By log: kNotTried, or what AppendToLog returned.
    static constexpr int kNotTried = -1;
    using Errors = std::array<int, 3>;
    Errors WriteFiles(const AgentSettings& settings) const noexcept;
    void Put(std::string_view text) noexcept;

    Log& log_;
    bool lone_ = false;
    SettingsSnapshot settings_;  // under which all lines were made
    time_t second_ = -1;         // of the stamp
    size_t stampSize_ = 0;
    size_t timeAt_ = 0;  // where the time begins in the stamp
    uint32_t address_ = 0;
    char addressText_[24] = "";
    std::array<Line, kMostLines> lines_;
    size_t count_ = 0;
    Room room_;
    size_t used_ = 0;
};

}  // namespace zot
