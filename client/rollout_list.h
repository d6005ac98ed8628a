// Who has what: the list that a roll-out keeps, one line for each host, so that a second run
// continues where the first one stopped.
#pragma once

#include <map>
#include <mutex>
#include <string>

#include "base/owners.h"

namespace zot::client {

class RolloutList {
  public:
    RolloutList() = default;
    ~RolloutList();
    RolloutList(const RolloutList&) = delete;
    RolloutList& operator=(const RolloutList&) = delete;

    // Reads the list, if it exists, and keeps other roll-outs away from it. False with the error
    // text.
    bool Open(const std::string& path, std::string& error);
    // Whether the host has the file with this digest, according to the list.
    bool HasUpgraded(const std::string& host, const std::string& digest) const;
    // Writes down at once what became of a host; several threads may call it. False with the error
    // text when the list cannot be written.
    bool Record(const std::string& host, const std::string& state, const std::string& digest,
                const std::string& note, std::string& error);

    const std::string& Path() const { return path_; }

  private:
    struct Entry {
        std::string state, digest, time, note;
    };

    bool Lock(std::string& error);

    std::string path_;
    UniqueFd lock_;  // on a separate file, which is removed after the roll-out
    mutable std::mutex entriesMutex_;
    std::map<std::string, Entry> entries_;
};

}  // namespace zot::client
