#include "config/audit_log.h"

#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <functional>

#include "base/platform/system.h"
#include "config/log_file.h"

namespace zot {
namespace {

constexpr std::string_view kToSystemLog = "syslog";
constexpr size_t kLongestCommand = 64;
constexpr size_t kAddressBuffer = 24;
constexpr size_t kLineBuffer = 512;

constexpr int64_t kMinute = 60;
constexpr int32_t kLinesAMinute = 10;
constexpr size_t kMostStrangers = 1024;
// All addresses beyond the bound share the entry of this address, which no peer has.
constexpr uint32_t kOthers = 0;

// The command of a request, without anything that could be taken for another field or line.
VyString CommandOf(std::string_view request) {
    std::string_view name = TrimView(request.substr(0, request.find('\n')));
    VyString command;
    for (char c : name.substr(0, kLongestCommand)) {
        if (c > ' ' && c < 0x7f && c != '\\') {
            command.Append(c);
            continue;
        }
        char escaped[5];
        std::snprintf(escaped, sizeof escaped, "\\x%02x", static_cast<unsigned char>(c));
        command.Append(escaped);
    }
    return command.Empty() ? "-" : command;
}

}  // namespace

AuditLog::AuditLog(Log& log) : AuditLog(log, _PATH_LOG) {}

void AuditLog::NoteRequest(const AgentSettings& settings, uint32_t address,
                           std::string_view request, std::string_view status,
                           int64_t milliseconds) {
    if (settings.auditLog.Empty()) return;
    VyString command = CommandOf(request);
    char text[kLineBuffer];
    std::snprintf(text, sizeof text, "%s %.*s %lld ms", command.Terminate(),
                  static_cast<int>(status.size()), status.data(),
                  static_cast<long long>(milliseconds));
    Write(settings, address, text);
}

void AuditLog::NoteStranger(const AgentSettings& settings, uint32_t address, int64_t now) {
    if (settings.auditLog.Empty()) return;
    std::lock_guard<std::mutex> lock(strangersMutex_);
    Stranger& stranger = FindOrAdd(address, now);
    if (now - stranger.since >= kMinute) {
        WriteCount(settings, stranger);
        stranger = {stranger.address, now, 0};
    }
    // Nobody reads larger counts.
    if (stranger.packets < INT32_MAX) ++stranger.packets;
    if (stranger.packets <= kLinesAMinute) Write(settings, stranger.address, "not authenticated");
}

void AuditLog::WriteCounts(const AgentSettings& settings, int64_t now) {
    // The main thread does not wait for a session that is writing; it tries again later.
    std::unique_lock<std::mutex> lock(strangersMutex_, std::try_to_lock);
    if (!lock.owns_lock()) return;
    std::erase_if(strangers_, [&](const Stranger& stranger) {
        if (now - stranger.since < kMinute) return false;
        WriteCount(settings, stranger);
        return true;
    });
}

AuditLog::Stranger& AuditLog::FindOrAdd(uint32_t address, int64_t now) {
    auto found = std::find_if(strangers_.begin(), strangers_.end(),
                              [address](const Stranger& one) { return one.address == address; });
    if (found != strangers_.end()) return *found;
    const bool full = strangers_.size() >= kMostStrangers && address != kOthers;
    if (full) return FindOrAdd(kOthers, now);
    return strangers_.emplace_back(Stranger{address, now, 0});
}

void AuditLog::WriteCount(const AgentSettings& settings, const Stranger& stranger) {
    if (stranger.packets <= kLinesAMinute) return;
    char text[64];
    std::snprintf(text, sizeof text, "not authenticated, %d more in a minute",
                  stranger.packets - kLinesAMinute);
    Write(settings, stranger.address, text);
}

void AuditLog::Write(const AgentSettings& settings, uint32_t address, std::string_view text) {
    char from[kAddressBuffer] = "others";
    if (address != kOthers) AddressToText(address, from, sizeof from);
    const time_t now = time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    char stamp[32];
    char line[kLineBuffer];
    const auto size = static_cast<int>(text.size());
    if (settings.auditLog == kToSystemLog) {
        std::strftime(stamp, sizeof stamp, "%b %e %H:%M:%S", &local);
        std::snprintf(line, sizeof line, "<%d>%s zot[%d]: %s %.*s", LOG_DAEMON | LOG_INFO, stamp,
                      static_cast<int>(getpid()), from, size, text.data());
        TellIfBroken(settings.auditLog, Send(line));
    } else {
        // In the form in which the lines of the other logs begin.
        std::strftime(stamp, sizeof stamp, "%m/%d/%Y %H:%M:%S", &local);
        std::snprintf(line, sizeof line, "[%s]\t %s\t %.*s\n", stamp, from, size, text.data());
        const std::string_view whole = line;
        const iovec part = {line, whole.size()};
        TellIfBroken(settings.auditLog, AppendToLog(settings, settings.auditLog, {&part, 1}));
    }
}

// Of each log once, until it could be written again.
void AuditLog::TellIfBroken(std::string_view path, int error) {
    const size_t name = error == 0 ? 0 : std::hash<std::string_view>()(path);
    if (toldOf_.exchange(name) == name || name == 0) return;
    char reason[256];
    SystemErrorText(error, reason, sizeof reason);
    log_.WriteLog(LogKind::kFailure, 0, "Cannot write log %.*s: %s\n",
                  static_cast<int>(path.size()), path.data(), reason);
}

// Not syslog(): when the system's log is slow, that waits, and with it every thread that has a
// line. Lines that it cannot take at the moment are lost. Returns the errno of a log that takes
// nothing at all, else 0.
int AuditLog::Send(std::string_view text) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string_view path = systemLog_;
    if (path.size() >= sizeof address.sun_path) return ENAMETOOLONG;
    path.copy(address.sun_path, path.size());
    std::lock_guard<std::mutex> lock(systemLogMutex_);
    if (!socket_) socket_.Reset(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const bool sent = sendto(socket_.Get(), text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL,
                             reinterpret_cast<const sockaddr*>(&address), sizeof address) >= 0;
    return sent || errno == EAGAIN || errno == EWOULDBLOCK || errno == ENOBUFS ? 0 : errno;
}

}  // namespace zot
