#include "client/rollout_list.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <sstream>

#include "client/local_file.h"
#include "client/text.h"

namespace zot::client {
namespace {

constexpr size_t kMaxSize = size_t{64} << 20;
constexpr const char* kHeading = "# host  state  sha256  time  note\n";

std::string Now() {
    time_t now = time(nullptr);
    std::tm parts = {};
    localtime_r(&now, &parts);
    char text[32];
    return {text, strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts)};
}

}  // namespace

RolloutList::~RolloutList() {
    if (lock_) unlink((path_ + ".lock").c_str());
}

bool RolloutList::Lock(std::string& error) {
    std::string path = path_ + ".lock";
    struct stat status = {};
    // Again if the holder removed the file at its end.
    do {
        lock_.Reset(
            open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR));
        if (!lock_) {
            error = FileError("create", path, errno);
            return false;
        }
        if (flock(lock_.Get(), LOCK_EX | LOCK_NB) != 0) {
            lock_.Reset();
            error = "another roll-out keeps its list in " + path_;
            return false;
        }
    } while (fstat(lock_.Get(), &status) == 0 && status.st_nlink == 0);
    return true;
}

bool RolloutList::Open(const std::string& path, std::string& error) {
    path_ = path;
    if (!Lock(error)) return false;
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0 && errno == ENOENT) return true;
    std::string content;
    if (!ReadWholeFile(path, kMaxSize, content, error)) return false;
    std::istringstream lines(content);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string host;
        Entry entry;
        if (line.starts_with('#') || line.empty()) continue;
        if (!(words >> host >> entry.state >> entry.digest >> entry.time)) {
            error = path;
            error.append(" is not the list of a roll-out: ").append(line);
            return false;
        }
        std::getline(words >> std::ws, entry.note);
        entries_[host] = entry;
    }
    return true;
}

bool RolloutList::HasUpgraded(const std::string& host, const std::string& digest) const {
    std::lock_guard lock(entriesMutex_);
    auto entry = entries_.find(host);
    return entry != entries_.end() && entry->second.state == "upgraded" &&
           entry->second.digest == digest;
}

bool RolloutList::Record(const std::string& host, const std::string& state,
                         const std::string& digest, const std::string& note, std::string& error) {
    std::lock_guard lock(entriesMutex_);
    entries_[host] = {state, digest, Now(), Visible(note)};
    std::string content = kHeading;
    for (const auto& [name, entry] : entries_) {
        content += name + " " + entry.state + " " + entry.digest + " " + entry.time;
        if (!entry.note.empty()) content += " " + entry.note;
        content += "\n";
    }
    return ReplaceFile(path_, content, error);
}

}  // namespace zot::client
