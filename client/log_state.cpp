#include "client/log_state.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

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
#include "client/text.h"

namespace zot::client {
namespace {

constexpr std::string_view kHeading = "zotq log state 1\n";
constexpr size_t kMaxStateSize = 4096;

// A name that any file system accepts, whatever the identity contains.
std::string DigestOf(std::string_view identity) {
    return HexText(Md5Digest(identity.data(), identity.size()));
}

// The home directory of the user's account; empty when there is none.
std::string AccountHome() {
    char buffer[16384];
    passwd entry = {};
    passwd* found = nullptr;
    bool known = getpwuid_r(geteuid(), &entry, buffer, sizeof buffer, &found) == 0 && found;
    return known ? entry.pw_dir : "";
}

// A folder that others may have made first must be ours alone.
bool MakeOwnFolder(const std::string& path) {
    struct stat status = {};
    if (mkdir(path.c_str(), S_IRWXU) != 0 && errno != EEXIST) return false;
    return lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
           status.st_uid == geteuid() && (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

bool MakeFolder(const std::string& path) {
    std::error_code failure;
    std::filesystem::create_directories(path, failure);
    return !failure && access(path.c_str(), W_OK) == 0;
}

// Creates the directory for state files, by the rules of the XDG base directories if there is an
// environment. Returns its path, or an empty one with the error text.
std::string StateDirectory(const Environment& environment, std::string& error) {
    auto absolute = [](const char* path) { return path && path[0] == '/'; };
    std::string directory;
    if (absolute(environment.stateHome)) {
        directory = std::string(environment.stateHome) + "/zotq";
    } else if (absolute(environment.home)) {
        directory = std::string(environment.home) + "/.local/state/zotq";
    } else if (std::string home = AccountHome(); home.starts_with('/')) {
        directory = home + "/.local/state/zotq";
        if (!MakeFolder(directory)) directory.clear();
    }
    if (!directory.empty() && MakeFolder(directory)) return directory;
    const bool named = absolute(environment.stateHome) || absolute(environment.home);
    std::string own = "/var/tmp/zotq-" + std::to_string(geteuid());
    if (!named && MakeOwnFolder(own)) return own;
    error = "cannot create a folder for the state file; use --state";
    if (named) error = "cannot create " + directory + "; use --state";
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
        path_ = directory + "/";
    }
    if (path_.ends_with('/')) path_ += identity_;
    return Lock(deadline, error) && Read(error);
}

// The lock has a file of its own, which stays: each save replaces the state file.
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
    alarm_ = {};
    struct stat status = {};
    if (stat(path_.c_str(), &status) != 0 && errno == ENOENT) return true;
    std::string content;
    if (!ReadWholeFile(path_, kMaxStateSize, content, error)) return false;
    std::string identity;
    bool known = content.starts_with(kHeading);
    std::istringstream values(known ? content.substr(kHeading.size()) : "");
    values >> identity >> position_.position >> position_.lastSize >> position_.lastModified;
    bool whole = static_cast<bool>(values);
    // Missing from a state that an older version wrote.
    if (values >> alarm_.time >> alarm_.matches) std::getline(values >> std::ws, alarm_.line);
    if (!whole) {
        error = path_ + " is not a state file, or damaged: remove it to start again";
    } else if (identity != identity_) {
        error = path_ + " is the state of another agent, log or pattern";
    } else {
        return true;
    }
    return false;
}

bool LogState::Save(const ScanPosition& position, std::string& error, const LogAlarm& alarm) const {
    std::ostringstream content;
    content << kHeading << identity_ << '\n'
            << position.position << ' ' << position.lastSize << ' ' << position.lastModified
            << '\n';
    if (alarm.time != 0) {
        content << alarm.time << ' ' << alarm.matches << ' ' << alarm.line << '\n';
    }
    return ReplaceFile(path_, content.str(), error);
}

}  // namespace zot::client
