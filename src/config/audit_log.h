// Who asked what: one line for each request, and for each packet that did not authenticate, in the
// file or the system log that the settings name.
//
// A line holds time, address, command, status and milliseconds, never the content of a request.
// Strangers can send any number of packets, so ten a minute from one address are written and the
// rest are counted in one line. The number of addresses that are told apart is bounded.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string_view>
#include <vector>

#include "base/owners.h"
#include "base/vystring.h"
#include "config/log.h"
#include "config/settings.h"

namespace zot {

class AuditLog {
  public:
    // Tells `log` when it cannot write. Uses the standard socket of the system's log.
    explicit AuditLog(Log& log);
    AuditLog(Log& log, std::string_view systemLog) : log_(log), systemLog_(systemLog) {}

    // Notes what a peer (IPv4, network byte order) asked, by the first line of its request, the
    // status of the answer and how many milliseconds it took.
    void NoteRequest(const AgentSettings& settings, uint32_t address, std::string_view request,
                     std::string_view status, int64_t milliseconds);
    // Notes a packet that did not authenticate, at `now` seconds of MonotonicSeconds().
    void NoteStranger(const AgentSettings& settings, uint32_t address, int64_t now);
    // Writes the counts of the minutes that are over by then. Call about once a second, and with
    // INT64_MAX before the end.
    void WriteCounts(const AgentSettings& settings, int64_t now);

  private:
    struct Stranger {
        uint32_t address;
        int64_t since;  // when its minute began
        int32_t packets;
    };

    Stranger& FindOrAdd(uint32_t address, int64_t now);
    void WriteCount(const AgentSettings& settings, const Stranger& stranger);
    void Write(const AgentSettings& settings, uint32_t address, std::string_view text);
    int Send(std::string_view text);
    void TellIfBroken(std::string_view path, int error);

    Log& log_;
    const VyString systemLog_;
    std::atomic<size_t> toldOf_{0};  // the broken log, hashed, or 0
    std::mutex strangersMutex_;      // guards what follows
    std::vector<Stranger> strangers_;
    std::mutex systemLogMutex_;  // guards the making of the socket
    UniqueFd socket_;
};

}  // namespace zot
