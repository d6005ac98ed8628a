// Where a log check continues: the scan state that the agent returned, kept in a file between runs.
//
// Runs of the same check take turns: each holds a lock from before it reads the state until it has
// saved the next one, so that no line is counted twice.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "base/owners.h"
#include "client/deadline.h"
#include "client/invocation.h"
#include "client/log_scan.h"

namespace zot::client {

// What was found last, for as long as an alarm is held.
struct LogAlarm {
    int64_t time = 0;  // seconds since 1970; 0 when nothing was ever found
    int64_t matches = 0;
    std::string line;
};

class LogState {
  public:
    // Locks and reads the state of the check with this `identity`, which is different for every
    // check. It is in `stateFile`, in a file of that folder if it ends with "/" or, if it is empty,
    // in a file of the user's state directory: that is below the home directory of the user's
    // account when the environment says nothing or, where that cannot be written, a folder of the
    // user's own in /var/tmp. Waits for another run until the deadline. False with the error text.
    bool Open(const std::string& stateFile, std::string_view identity,
              const Environment& environment, const Deadline& deadline, std::string& error);
    bool Save(const ScanPosition& position, std::string& error, const LogAlarm& alarm = {}) const;

    const std::string& Path() const { return path_; }
    const ScanPosition& Position() const { return position_; }
    const LogAlarm& Alarm() const { return alarm_; }

  private:
    bool Lock(const Deadline& deadline, std::string& error);
    bool Read(std::string& error);

    std::string path_;
    std::string identity_;
    UniqueFd lock_;
    ScanPosition position_;
    LogAlarm alarm_;
};

}  // namespace zot::client
