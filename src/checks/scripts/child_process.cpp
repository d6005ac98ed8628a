// Why vfork: the child only makes system calls on prepared data, so it needs no copy of the agent's
// memory. With fork, copying the page tables takes longer as the agent grows and, while many
// requests run, every other thread pays for it with page faults. The rules of vfork are kept: all
// signals are blocked until the child has reset its handlers, so none of them runs on the shared
// memory; the child writes only to this object; and the calling thread goes on when the child has
// executed its program or exited. Nothing relies on the sharing, so a fork that copies (some
// checkers turn vfork into one) gives the same result.
//
// A child that changes to a directory named by the request comes from fork all the same: the
// directory may hang, and the time limit must not hang with it.
#include "checks/scripts/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>

#include "base/children.h"
#include "base/descriptor_limit.h"
#include "base/platform/child.h"
#include "base/platform/system.h"
#include "checks/scripts/temp_name.h"

namespace zot {
namespace {

constexpr const char* kNullDevice = "/dev/null";
constexpr const char* kShell = "/bin/sh";
constexpr std::string_view kTmpDirPrefix = "TMPDIR=";
constexpr std::string_view kPathPrefix = "PATH=";
constexpr int kExecFailed = 255;

// The environment as it was before the first thread. A reload may change TMPDIR with setenv at any
// time, and that must not happen under the eyes of a thread that reads the array; TMPDIR is the
// one variable that the agent sets, so it is left out here and added from the settings.
std::vector<char*> CopyEnvironment() {
    std::vector<char*> variables;
    for (char** variable = ProcessEnvironment(); variable != nullptr && *variable != nullptr;
         ++variable) {
        std::string_view text = *variable;
        if (text.starts_with(kTmpDirPrefix) || text.starts_with(kHandOverPrefix)) continue;
        variables.push_back(*variable);
    }
    return variables;
}
// Never destroyed: sessions still start children while the process ends.
const std::vector<char*>& inheritedEnvironment = *new std::vector<char*>(CopyEnvironment());

std::string SearchPath() {
    for (const char* variable : inheritedEnvironment) {
        std::string_view text = variable;
        if (text.starts_with(kPathPrefix)) return std::string(text.substr(kPathPrefix.size()));
    }
    std::string standard(confstr(_CS_PATH, nullptr, 0), '\0');
    confstr(_CS_PATH, standard.data(), standard.size());
    if (!standard.empty()) standard.pop_back();  // the terminating NUL
    return standard;
}

// Puts the file on the descriptor; false, with errno, when it cannot be opened. On a system without
// a null device the descriptor stays closed.
bool OpenStream(const std::string& path, int flags, int target) noexcept {
    int fd = open(path.c_str(), flags | O_NOCTTY, 0666);
    if (fd < 0) return path == kNullDevice;
    if (fd == target) return true;
    dup2(fd, target);
    close(fd);
    return true;
}

// A script that was just written can still be open for writing in a child that another thread has
// forked meanwhile and that has not closed its descriptors yet. A lock would not do: a child that
// hangs before its exec (a dead network file system) would then stop all others. So the exec is
// tried again until that child has run its first instructions.
void ExecuteUnlessBusy(const char* file, char* const* arguments, char* const* environment) {
    constexpr int kTries = 1500;
    constexpr int kIntervalMs = 2;
    for (int i = 0; i < kTries; ++i) {
        execve(file, arguments, environment);
        if (errno != ETXTBSY) return;
        poll(nullptr, 0, kIntervalMs);
    }
    errno = ETXTBSY;
}

std::string PathOrNull(std::string_view path) {
    return std::string(path.empty() ? std::string_view(kNullDevice) : path);
}

}  // namespace

SharedNumber::SharedNumber() {
    void* memory = mmap(nullptr, sizeof(int), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANON, -1, 0);
    if (memory != MAP_FAILED) number_ = static_cast<volatile int*>(memory);
}

SharedNumber::~SharedNumber() {
    if (number_ != nullptr) munmap(const_cast<int*>(number_), sizeof(int));
}

void MarkerName::Prepare(const ChildOptions& options) {
    prefix_ = 0;
    std::string directory(options.tmpDir);
    // The child looks for it after its change of directory.
    if (!options.workDir.empty() && !directory.empty() && directory[0] != '/') {
        char current[sizeof path_];
        if (getcwd(current, sizeof current) == nullptr) return;
        directory = std::string(current) + "/" + directory;
    }
    if (!MakeTempName(directory, path_, sizeof path_ - kRoomForPid, "tmpSzot-")) return;
    prefix_ = std::strlen(path_);
}

const char* MarkerName::For(pid_t pid) noexcept {
    if (prefix_ == 0) return nullptr;
    char digits[kRoomForPid];
    size_t count = 0;
    for (auto rest = static_cast<unsigned>(pid); rest != 0; rest /= 10) {
        digits[count++] = static_cast<char>('0' + rest % 10);
    }
    char* end = path_ + prefix_;
    while (count > 0) *end++ = digits[--count];
    std::memcpy(end, ".txt", 5);
    return path_;
}

ChildProcess::ChildProcess(char* const* arguments, const ChildOptions& options,
                           ExecFailure onFailure)
    : arguments_(arguments),
      stdinPath_(PathOrNull(options.stdinPath)),
      stdoutPath_(PathOrNull(options.stdoutPath)),
      stderrPath_(PathOrNull(options.stderrPath)),
      workDir_(options.workDir) {
    PrepareEnvironment(options.tmpDir);
    PrepareCandidates();
    if (onFailure == ExecFailure::kMarked) marker_.Prepare(options);
}

void ChildProcess::PrepareEnvironment(std::string_view tmpDir) {
    environment_.reserve(inheritedEnvironment.size() + 2);
    environment_ = inheritedEnvironment;
    tmpDirVariable_.append(kTmpDirPrefix).append(tmpDir);
    environment_.push_back(tmpDirVariable_.data());
    environment_.push_back(nullptr);
}

void ChildProcess::PrepareCandidates() {
    shellArguments_ = {const_cast<char*>(kShell), nullptr};
    if (arguments_[0] == nullptr || arguments_[0][0] == '\0') return;
    for (char* const* argument = arguments_; *argument != nullptr;) {
        shellArguments_.push_back(*++argument);
    }
    std::string name = arguments_[0];
    if (name.find('/') != std::string::npos) {
        candidates_.push_back(name);
        return;
    }
    std::string path = SearchPath();
    for (size_t start = 0; start <= path.size();) {
        size_t end = std::min(path.find(':', start), path.size());
        // An empty entry means the directory in which the child runs.
        std::string candidate = path.substr(start, end - start);
        if (!candidate.empty()) candidate += '/';
        candidates_.push_back(candidate += name);
        start = end + 1;
    }
}

pid_t ChildProcess::Start() {
    if (execError_.Get() == nullptr) return -1;
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    pid_t pid = workDir_.empty() ? vfork() : fork();
    if (pid == 0) RunChild();
    int error = errno;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    errno = error;
    return pid;
}

void ChildProcess::RunChild() noexcept {
    CloseDescriptorsFrom(0);
    RestoreDescriptorLimit();
    ResetSignals();
    setsid();
    const int streamError = OpenStreams() ? 0 : errno;
    if (!workDir_.empty()) {
        // If the directory does not exist the child stays where the agent is.
        [[maybe_unused]] int moved = chdir(workDir_.c_str());
    }
    const char* marker = marker_.For(getpid());
    if (marker != nullptr) unlink(marker);
    *execError_.Get() = streamError != 0 ? streamError : Execute();
    _exit(kExecFailed);
}

// False, with errno, when a file for a stream cannot be opened: a program whose output went nowhere
// would seem to have none.
bool ChildProcess::OpenStreams() const noexcept {
    constexpr int kWrite = O_WRONLY | O_CREAT | O_TRUNC;
    if (!OpenStream(stdinPath_, O_RDONLY, STDIN_FILENO)) return false;
    if (!OpenStream(stdoutPath_, kWrite, STDOUT_FILENO)) return false;
    if (stderrPath_ != stdoutPath_) return OpenStream(stderrPath_, kWrite, STDERR_FILENO);
    dup2(STDOUT_FILENO, STDERR_FILENO);
    return true;
}

// Does what execvp does, with names prepared before the fork. Returns the error number.
int ChildProcess::Execute() noexcept {
    int error = ENOENT;
    bool denied = false;
    for (const std::string& candidate : candidates_) {
        ExecuteUnlessBusy(candidate.c_str(), arguments_, environment_.data());
        if (errno == ENOEXEC) {
            shellArguments_[1] = const_cast<char*>(candidate.c_str());
            execve(kShell, shellArguments_.data(), environment_.data());
        }
        error = errno;
        if (error == EACCES) {
            denied = true;
        } else if (error != ENOENT && error != ENOTDIR && error != ESTALE && error != ENODEV &&
                   error != ETIMEDOUT) {
            return error;
        }
    }
    return denied ? EACCES : error;
}

}  // namespace zot
