#include "client/log_state.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <sstream>
#include <system_error>
#include <thread>

#include "base/md5.h"
#include "client/local_file.h"

namespace zot::client {
namespace {

constexpr std::string_view kHeading = "zotq log state 1\n";
constexpr size_t kMaxStateSize = 4096;

// A name that any file system takes, whatever is in the identity.
std::string DigestOf(std::string_view identity) {
    std::string name;
    for (uint8_t byte : Md5Digest(identity.data(), identity.size())) {
        name += "0123456789abcdef"[byte >> 4];
        name += "0123456789abcdef"[byte & 15];
    }
    return name;
}

// Creates the directory for state files, by the rules of the XDG base directories. Returns its
// path, or an empty one with the error text.
std::string StateDirectory(const Environment& environment, std::string& error) {
    auto absolute = [](const char* path) { return path && path[0] == '/'; };
    std::string directory;
    if (absolute(environment.stateHome)) {
        directory = std::string(environment.stateHome) + "/zotq";
    } else if (absolute(environment.home)) {
        directory = std::string(environment.home) + "/.local/state/zotq";
    } else {
        error = "no place for the state file: use --state or set HOME";
        return {};
    }
    std::error_code failure;
    std::filesystem::create_directories(directory, failure);
    if (!failure) return directory;
    error = "cannot create " + directory + ": " + failure.message();
    return {};
}

}  // namespace

bool LogState::Open(const std::string& stateFile, std::string_view identity,
                    const Environment& environment, const Deadline& deadline, std::string& error) {
    identity_ = DigestOf(identity);
    path_ = stateFile;
    if (path_.empty()) {
        std::string directory = StateDirectory(environment, error);
        if (directory.empty()) return false;
        path_ = directory + "/" + identity_;
    }
    return Lock(deadline, error) && Read(error);
}

// The lock has a file of its own, which stays: the state file is another one after each save.
bool LogState::Lock(const Deadline& deadline, std::string& error) {
    constexpr std::chrono::milliseconds kPause{20};
    std::string path = path_ + ".lock";
    lock_.Reset(open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (!lock_) {
        error = FileError("create", path, errno);
        return false;
    }
    while (flock(lock_.Get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno == EINTR) continue;
        if (errno != EWOULDBLOCK || deadline.Remaining() == 0) {
            error =
                errno == EWOULDBLOCK ? "another run holds " + path : FileError("lock", path, errno);
            return false;
        }
        std::this_thread::sleep_for(kPause);
    }
    return true;
}

bool LogState::Read(std::string& error) {
    position_ = {};
    struct stat status = {};
    if (stat(path_.c_str(), &status) != 0 && errno == ENOENT) return true;
    std::string content;
    if (!ReadWholeFile(path_, kMaxStateSize, content, error)) return false;
    std::string identity;
    bool known = content.starts_with(kHeading);
    std::istringstream values(known ? content.substr(kHeading.size()) : "");
    values >> identity >> position_.position >> position_.lastSize >> position_.lastModified;
    if (!values) {
        error = path_ + " is not a state file, or damaged: remove it to start again";
    } else if (identity != identity_) {
        error = path_ + " is the state of another agent, log or pattern";
    } else {
        return true;
    }
    return false;
}

bool LogState::Save(const ScanPosition& position, std::string& error) const {
    std::ostringstream content;
    content << kHeading << identity_ << '\n'
            << position.position << ' ' << position.lastSize << ' ' << position.lastModified
            << '\n';
    return ReplaceFile(path_, content.str(), error);
}

}  // namespace zot::client
