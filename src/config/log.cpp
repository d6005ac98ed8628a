#include "config/log.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <limits.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "base/owners.h"
#include "base/vystring.h"

namespace zot {
namespace {

constexpr size_t kLineBuffer = 512;    // a message or a line, and a NUL
constexpr size_t kAddressBuffer = 24;  // fits any address
constexpr const char* kOwnAddress = "zot\t";

// Callers report errno after they have logged, and a signal handler must leave it alone.
class KeepErrno {
  public:
    KeepErrno() : saved_(errno) {}
    ~KeepErrno() { errno = saved_; }
    KeepErrno(const KeepErrno&) = delete;
    KeepErrno& operator=(const KeepErrno&) = delete;

  private:
    int saved_;
};

struct LineTime {
    int year, month, day, hour, minute, second;
};

// One line of a log, built in place: signal handlers use it too.
class LineText {
  public:
    void Put(std::string_view text) {
        size_t count = std::min(text.size(), sizeof(text_) - 1 - length_);
        memcpy(text_ + length_, text.data(), count);
        length_ += count;
    }
    // A number of at least two digits.
    void PutNumber(int number) {
        char digits[12];
        size_t at = sizeof(digits);
        for (auto rest = static_cast<unsigned>(number); rest != 0 || at > sizeof(digits) - 2;
             rest /= 10) {
            digits[--at] = static_cast<char>('0' + rest % 10);
        }
        Put({digits + at, sizeof(digits) - at});
    }
    void PutTriple(int a, int b, int c, std::string_view separator) {
        PutNumber(a);
        Put(separator);
        PutNumber(b);
        Put(separator);
        PutNumber(c);
    }
    std::string_view View() const { return {text_, length_}; }

  private:
    char text_[kLineBuffer];
    size_t length_ = 0;
};

// Builds "[date time]\t address\t message".
void BuildFileLine(LineText& line, const LineTime& time, std::string_view address,
                   std::string_view message) {
    line.Put("[");
    line.PutTriple(time.month, time.day, time.year, "/");
    line.Put(" ");
    line.PutTriple(time.hour, time.minute, time.second, ":");
    line.Put("]\t ");
    line.Put(address);
    line.Put("\t ");
    line.Put(message);
}

// Builds "[zot][time]\t address\t message".
void BuildConsoleLine(LineText& line, const LineTime& time, std::string_view address,
                      std::string_view message) {
    line.Put("[zot][");
    line.PutTriple(time.hour, time.minute, time.second, ":");
    line.Put("]\t ");
    line.Put(address);
    line.Put("\t ");
    line.Put(message);
}

// The local time now, and how many seconds it is ahead of UTC.
LineTime LocalTime(int32_t& utcOffset) {
    time_t now = time(nullptr);
    struct tm parts {};
    localtime_r(&now, &parts);
    utcOffset = static_cast<int32_t>(parts.tm_gmtoff);
    return {parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday,
            parts.tm_hour,        parts.tm_min,     parts.tm_sec};
}

// The same from a known offset by arithmetic alone. Async-signal-safe.
LineTime TimeAtOffset(int32_t utcOffset) {
    using namespace std::chrono;
    sys_seconds now{seconds(time(nullptr)) + seconds(utcOffset)};
    auto today = floor<days>(now);
    year_month_day date(today);
    hh_mm_ss clock(now - today);
    return {static_cast<int>(date.year()),
            static_cast<int>(static_cast<unsigned>(date.month())),
            static_cast<int>(static_cast<unsigned>(date.day())),
            static_cast<int>(clock.hours().count()),
            static_cast<int>(clock.minutes().count()),
            static_cast<int>(clock.seconds().count())};
}

// The log that the kind has of its own besides the verbose log; empty if it is off.
std::string_view LogOfKind(const AgentSettings& settings, LogKind kind) {
    if (kind == LogKind::kSuccess && settings.logSuccess) return settings.okLogFile;
    if (kind == LogKind::kFailure && settings.logFails) return settings.badLogFile;
    return {};
}

std::string_view VerboseLog(const AgentSettings& settings) {
    return settings.verbose ? settings.verboseLogFile.View() : std::string_view();
}

// Most agents run without any log for most kinds: such a line costs no clock and no formatting.
bool IsWanted(const AgentSettings& settings, LogKind kind) {
    if (kind == LogKind::kTrace && !settings.debug) return false;
    return settings.interactive || !LogOfKind(settings, kind).empty() ||
           !VerboseLog(settings).empty();
}

// The file that a path names: one without a directory stands beside the configuration file. The
// directory of that brings its "/" along, so the path holds two in a row. False if it is too long.
bool ResolveLogPath(const AgentSettings& settings, std::string_view path, char (&full)[PATH_MAX]) {
    std::string_view directory;
    if (path.find('/') == std::string_view::npos) {
        std::string_view config(settings.configPath);
        directory = config.substr(0, config.rfind('/') + 1);
    }
    if (directory.size() + path.size() + 2 > sizeof(full)) return false;
    char* end = std::copy(directory.begin(), directory.end(), full);
    if (!directory.empty()) *end++ = '/';
    *std::copy(path.begin(), path.end(), end) = '\0';
    return true;
}

}  // namespace

void AddressToText(uint32_t address, char* buffer, size_t size) {
    if (size == 0) return;
    char text[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &address, text, sizeof(text));
    *std::copy_n(text, std::min(strlen(text), size - 1), buffer) = '\0';
}

void AppendLogLine(const AgentSettings& settings, std::string_view path, std::string_view line) {
    char full[PATH_MAX];
    if (path.empty() || line.empty() || !ResolveLogPath(settings, path, full)) return;
    KeepErrno keeper;
    // Neither a named pipe without a reader nor a terminal that is held up may stop the agent.
    UniqueFd fd(
        open(full, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0640));
    struct stat info {};
    if (!fd || fstat(fd.Get(), &info) != 0) return;
    if (!S_ISREG(info.st_mode) && !S_ISCHR(info.st_mode)) return;
    // One write a line: another process that appends to the file never cuts a line in two.
    [[maybe_unused]] ssize_t written = write(fd.Get(), line.data(), line.size());
}

Log::Log(SettingsStore& settings) : settings_(settings) {
    int32_t utcOffset = 0;
    LocalTime(utcOffset);
    utcOffset_ = utcOffset;
}

void Log::WriteLog(LogKind kind, uint32_t clientAddress, const char* format, ...) {
    KeepErrno keeper;
    SettingsSnapshot settings = settings_.Snapshot();
    if (!IsWanted(*settings, kind)) return;
    char message[kLineBuffer];
    va_list arguments;
    va_start(arguments, format);
    int length = vsnprintf(message, sizeof(message), format, arguments);
    va_end(arguments);
    if (length >= 0) WriteLines(*settings, kind, clientAddress, message);
}

void Log::WriteLogText(LogKind kind, uint32_t clientAddress, std::string_view message) {
    KeepErrno keeper;
    SettingsSnapshot settings = settings_.Snapshot();
    if (!IsWanted(*settings, kind)) return;
    message = message.substr(0, kLineBuffer - 1);
    WriteLines(*settings, kind, clientAddress, message.substr(0, message.find('\0')));
}

void Log::WriteLines(const AgentSettings& settings, LogKind kind, uint32_t clientAddress,
                     std::string_view message) {
    std::lock_guard<std::mutex> lock(logMutex_);
    int32_t utcOffset = 0;
    LineTime now = LocalTime(utcOffset);
    utcOffset_.store(utcOffset, std::memory_order_relaxed);
    char address[kAddressBuffer];
    if (clientAddress != 0) AddressToText(clientAddress, address, sizeof(address));
    std::string_view from = clientAddress != 0 ? address : kOwnAddress;
    if (settings.interactive) {
        LineText line;
        BuildConsoleLine(line, now, from, message);
        fwrite(line.View().data(), 1, line.View().size(), stdout);
        fflush(stdout);
    }
    LineText line;
    BuildFileLine(line, now, from, message);
    AppendLogLine(settings, LogOfKind(settings, kind), line.View());
    AppendLogLine(settings, VerboseLog(settings), line.View());
}

void Log::WriteFromSignal(const AgentSettings& settings, LogKind kind,
                          const char* message) noexcept {
    KeepErrno keeper;
    LineTime now = TimeAtOffset(utcOffset_.load(std::memory_order_relaxed));
    if (settings.interactive) {
        LineText line;
        BuildConsoleLine(line, now, kOwnAddress, message);
        [[maybe_unused]] ssize_t written =
            write(STDOUT_FILENO, line.View().data(), line.View().size());
    }
    LineText line;
    BuildFileLine(line, now, kOwnAddress, message);
    AppendLogLine(settings, LogOfKind(settings, kind), line.View());
    AppendLogLine(settings, VerboseLog(settings), line.View());
}

}  // namespace zot
