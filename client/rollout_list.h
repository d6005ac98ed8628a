// Who has what: the list that a roll-out keeps, one line for each host, so that a second run goes
// on where the first one stopped.
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

    // Reads the list, which need not be there yet, and keeps other roll-outs off it. False with the
    // error text.
    bool Open(const std::string& path, std::string& error);
    // Whether the host has the file with this digest, by the list.
    bool HasUpgraded(const std::string& host, const std::string& digest) const;
    // Writes down what became of a host, at once; may be called by several threads. False with the
    // error text when the list cannot be written.
    bool Record(const std::string& host, const std::string& state, const std::string& digest,
                const std::string& note, std::string& error);

    const std::string& Path() const { return path_; }

  private:
    struct Entry {
        std::string state, digest, time, note;
    };

    bool Lock(std::string& error);

    std::string path_;
    UniqueFd lock_;  // on a file of its own, which goes with the roll-out
    mutable std::mutex entriesMutex_;
    std::map<std::string, Entry> entries_;
};

}  // namespace zot::client
