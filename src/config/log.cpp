#include "config/log.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <functional>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <span>
#include <string>
#include <utility>

#include "base/platform/system.h"
#include "base/vystring.h"
#include "config/log_file.h"

namespace zot {
namespace {

constexpr size_t kLineBuffer = 512;  // a message or a line, and a NUL
constexpr size_t kLongestLine = kLineBuffer - 1;
constexpr const char* kOwnAddress = "zot\t";
constexpr std::string_view kConsoleStart = "[zot][";

thread_local LogBatch* threadBatch = nullptr;

// Callers report errno after logging, and a signal handler must leave it unchanged.
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

// One line of a log, built in place, even in signal handlers.
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
    // Puts "[date time]\t " and returns where the time begins.
    size_t PutStamp(const LineTime& time) {
        Put("[");
        PutTriple(time.month, time.day, time.year, "/");
        Put(" ");
        const size_t timeAt = length_;
        PutTriple(time.hour, time.minute, time.second, ":");
        Put("]\t ");
        return timeAt;
    }
    std::string_view View() const { return {text_, length_}; }

  private:
    char text_[kLineBuffer];
    size_t length_ = 0;
};

// The local time of a moment, and how many seconds it is ahead of UTC.
LineTime LocalTime(time_t now, int32_t& utcOffset) {
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

// The kind's own log, besides the verbose log; empty if it is off.
std::string_view LogOfKind(const AgentSettings& settings, LogKind kind) {
    if (kind == LogKind::kSuccess && settings.logSuccess) return settings.okLogFile;
    if (kind == LogKind::kFailure && settings.logFails) return settings.badLogFile;
    return {};
}

std::string_view VerboseLog(const AgentSettings& settings) {
    return settings.verbose ? settings.verboseLogFile.View() : std::string_view();
}

// The files of a configuration; empty if off.
using LogPaths = std::array<std::string_view, 3>;
constexpr size_t kSuccessPath = 0;
constexpr size_t kFailurePath = 1;
constexpr size_t kVerbosePath = 2;

LogPaths PathsOf(const AgentSettings& settings) {
    return {LogOfKind(settings, LogKind::kSuccess), LogOfKind(settings, LogKind::kFailure),
            VerboseLog(settings)};
}

// Most agents log most kinds nowhere: such a line costs no clock and no formatting.
bool IsWanted(const AgentSettings& settings, LogKind kind) {
    if (kind == LogKind::kTrace && !settings.debug) return false;
    return settings.interactive || !LogOfKind(settings, kind).empty() ||
           !VerboseLog(settings).empty();
}

// Parts of a text; adjacent ones become one.
template <size_t n>
class Parts {
  public:
    void Add(const char* text, size_t size) {
        auto* start = const_cast<char*>(text);  // iovec serves reading too
        if (count_ > 0 &&
            static_cast<char*>(parts_[count_ - 1].iov_base) + parts_[count_ - 1].iov_len == start) {
            parts_[count_ - 1].iov_len += size;
        } else {
            parts_[count_++] = {start, size};
        }
    }
    std::span<const iovec> View() const { return {parts_, count_}; }

  private:
    iovec parts_[n];
    size_t count_ = 0;
};

}  // namespace

void AddressToText(uint32_t address, char* buffer, size_t size) {
    if (size == 0) return;
    char text[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &address, text, sizeof(text));
    *std::copy_n(text, std::min(strlen(text), size - 1), buffer) = '\0';
}

Log::Log(SettingsStore& settings) : settings_(settings) {
    int32_t utcOffset = 0;
    LocalTime(time(nullptr), utcOffset);
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
    if (length >= 0) WriteLine(std::move(settings), kind, clientAddress, message);
}

void Log::WriteLogText(LogKind kind, uint32_t clientAddress, std::string_view message) {
    KeepErrno keeper;
    SettingsSnapshot settings = settings_.Snapshot();
    if (!IsWanted(*settings, kind)) return;
    message = message.substr(0, kLineBuffer - 1);
    WriteLine(std::move(settings), kind, clientAddress, message.substr(0, message.find('\0')));
}

void Log::WriteLine(SettingsSnapshot settings, LogKind kind, uint32_t clientAddress,
                    std::string_view message) {
    if (threadBatch == nullptr) {
        LogBatch batch(*this, LogBatch::Lone());
        batch.settings_ = std::move(settings);
        batch.Add(kind, clientAddress, message);
        return;
    }
    LogBatch& batch = *threadBatch;
    // The settings at the time a line is made decide where it goes.
    if (batch.settings_ != settings) {
        batch.Write();
        batch.settings_ = std::move(settings);
    }
    batch.Add(kind, clientAddress, message);
}

void Log::Flush() noexcept {
    if (threadBatch == nullptr) return;
    KeepErrno keeper;
    threadBatch->Write();
}

void Log::WriteFromSignal(const AgentSettings& settings, LogKind kind,
                          const char* message) noexcept {
    KeepErrno keeper;
    if (threadBatch != nullptr) threadBatch->WriteFromSignal();
    LineText line;
    const size_t timeAt = line.PutStamp(TimeAtOffset(utcOffset_.load(std::memory_order_relaxed)));
    line.Put(kOwnAddress);
    line.Put("\t ");
    line.Put(message);
    if (settings.interactive) {
        LineText console;
        console.Put(kConsoleStart);
        console.Put(line.View().substr(timeAt));
        console_.WriteFromSignal(console.View());
    }
    AppendLogLine(settings, LogOfKind(settings, kind), line.View());
    AppendLogLine(settings, VerboseLog(settings), line.View());
}

// cppcheck-suppress uninitMemberVar
LogBatch::LogBatch(Log& log) noexcept : log_(log) { threadBatch = this; }

LogBatch::~LogBatch() {
    Write();
    if (!lone_) threadBatch = nullptr;
}

void LogBatch::Add(LogKind kind, uint32_t clientAddress, std::string_view message) {
    if (count_ == lines_.size() || sizeof room_.text - used_ < 2 * kLineBuffer) {
        SettingsSnapshot settings = settings_;
        Write();
        settings_ = std::move(settings);
    }
    MakeStamp();
    if (clientAddress != 0 && (addressText_[0] == '\0' || address_ != clientAddress)) {
        AddressToText(clientAddress, addressText_, sizeof addressText_);
        address_ = clientAddress;
    }
    const size_t start = used_;
    Put({room_.stamp, stampSize_});
    Put(clientAddress != 0 ? addressText_ : kOwnAddress);
    Put("\t ");
    Put(message);
    // A line counts only from here: the thread may crash while making it.
    lines_[count_++] = {static_cast<uint16_t>(start), static_cast<uint16_t>(used_ - start), kind};
}

void LogBatch::MakeStamp() {
    const time_t now = time(nullptr);
    if (now == second_) return;
    int32_t utcOffset = 0;
    LineText stamp;
    timeAt_ = stamp.PutStamp(LocalTime(now, utcOffset));
    log_.utcOffset_.store(utcOffset, std::memory_order_relaxed);
    stampSize_ = stamp.View().copy(room_.stamp, sizeof room_.stamp);
    second_ = now;
}

void LogBatch::Put(std::string_view text) noexcept {
    used_ += text.copy(room_.text + used_, sizeof room_.text - used_);
}

void LogBatch::Write() noexcept {
    if (count_ == 0) return;
    {
        std::lock_guard<std::mutex> lock(log_.logMutex_);
        for (const Line& line : std::span(lines_).first(settings_->interactive ? count_ : 0)) {
            log_.console_.Write(ConsoleLine(line));
        }
        log_.TellOfBrokenLogs(*settings_, WriteFiles(*settings_));
    }
    count_ = 0;
    used_ = 0;
    settings_.reset();  // an idle thread keeps no settings alive
}

// Takes no lock, does not wait and frees nothing.
void LogBatch::WriteFromSignal() noexcept {
    if (count_ == 0) return;
    for (const Line& line : std::span(lines_).first(settings_->interactive ? count_ : 0)) {
        log_.console_.WriteFromSignal(ConsoleLine(line));
    }
    WriteFiles(*settings_);
    count_ = 0;
}

// The line with another beginning, built over the last one built so.
std::string_view LogBatch::ConsoleLine(const Line& line) noexcept {
    LineText text;
    text.Put(kConsoleStart);
    text.Put({room_.text + line.start + timeAt_, line.size - timeAt_});
    return {room_.console, text.View().copy(room_.console, sizeof room_.console)};
}

LogBatch::Errors LogBatch::WriteFiles(const AgentSettings& settings) const noexcept {
    const LogPaths paths = PathsOf(settings);
    const std::string_view all = paths[kVerbosePath];
    Errors errors;
    errors.fill(kNotTried);
    for (size_t at = 0; at < paths.size(); ++at) {
        // If two logs are one file, it gets their lines in the order in which they were made.
        if (std::find(paths.begin(), paths.begin() + at, paths[at]) != paths.begin() + at) continue;
        Parts<2 * kMostLines> parts;
        for (const Line& line : std::span(lines_).first(count_)) {
            const size_t size = std::min<size_t>(line.size, kLongestLine);
            if (LogOfKind(settings, line.kind) == paths[at])
                parts.Add(room_.text + line.start, size);
            if (all == paths[at]) parts.Add(room_.text + line.start, size);
        }
        if (paths[at].empty() || parts.View().empty()) continue;
        errors[at] = AppendToLog(settings, paths[at], parts.View());
    }
    return errors;
}

void Log::TellOfBrokenLogs(const AgentSettings& settings, std::span<const int> errors) noexcept {
    const LogPaths paths = PathsOf(settings);
    for (size_t at = 0; at < paths.size(); ++at) {
        if (errors[at] == LogBatch::kNotTried) continue;
        // Once for each file, until it has been written again.
        const size_t name = errors[at] == 0 ? 0 : std::hash<std::string_view>()(paths[at]);
        if (std::exchange(toldOf_[at], name) != name && name != 0) {
            TellOfBrokenLog(settings, paths[at], errors[at]);
        }
    }
}

// To the first of the other logs that takes it, and to the console.
void Log::TellOfBrokenLog(const AgentSettings& settings, std::string_view path,
                          int error) noexcept {
    char reason[256];
    SystemErrorText(error, reason, sizeof reason);
    int32_t utcOffset = 0;
    LineText line;
    const size_t timeAt = line.PutStamp(LocalTime(time(nullptr), utcOffset));
    line.Put(kOwnAddress);
    for (std::string_view part :
         {std::string_view("\t Cannot write log "), path, std::string_view(": "),
          std::string_view(reason), std::string_view("\n")}) {
        line.Put(part);
    }
    if (settings.interactive) {
        LineText console;
        console.Put(kConsoleStart);
        console.Put(line.View().substr(timeAt));
        console_.Write(console.View());
    }
    const std::string_view text = line.View();
    const iovec whole = {const_cast<char*>(text.data()), text.size()};
    const LogPaths paths = PathsOf(settings);
    for (size_t other : {kFailurePath, kVerbosePath, kSuccessPath}) {
        if (paths[other].empty() || paths[other] == path) continue;
        if (AppendToLog(settings, paths[other], {&whole, 1}) == 0) return;
    }
}

}  // namespace zot
