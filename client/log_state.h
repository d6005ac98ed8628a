// Where a log check goes on: the scan state that the agent returned, kept in a file between runs.
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

namespace zot::client {

// What TEST-TextLog takes and returns; zero for a log that was never scanned.
struct ScanPosition {
    int64_t position = 0;
    int64_t lastSize = 0;
    int64_t lastModified = 0;
};

class LogState {
  public:
    // Locks the state of the check that `identity` tells from all others and reads it: in
    // `stateFile`, or if that is empty in a file of the user's state directory. Waits for another
    // run until the deadline. False with the error text.
    bool Open(const std::string& stateFile, std::string_view identity,
              const Environment& environment, const Deadline& deadline, std::string& error);
    bool Save(const ScanPosition& position, std::string& error) const;

    const ScanPosition& Position() const { return position_; }

  private:
    bool Lock(const Deadline& deadline, std::string& error);
    bool Read(std::string& error);

    std::string path_;
    std::string identity_;
    UniqueFd lock_;
    ScanPosition position_;
};

}  // namespace zot::client
