#include "checks/scripts/run_process.h"

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <optional>

#include "base/children.h"
#include "base/loose_ends.h"
#include "base/owners.h"
#include "base/peer_watch.h"
#include "base/platform/child.h"
#include "base/platform/system.h"
#include "checks/scripts/argument_list.h"

namespace zot {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr int kExecFailed = 255;

// A child that is registered with the loose ends.
class Runner {
  public:
    // If the child cannot be started Pid() is -1, and nothing else happens.
    Runner(ChildProcess& child, WatchedChild::Fate fate) {
        Making making;
        // Not in the list of initialisers: the loose ends must know first.
        // cppcheck-suppress useInitializationList
        pid_ = child.Start();
        if (pid_ >= 0) watched_.emplace(pid_, fate);
    }

    pid_t Pid() const { return pid_; }

    // Waits for the end of the child, at most until the deadline and only while somebody still
    // wants the outcome. Returns whether it was reaped.
    bool ReapBefore(Clock::time_point deadline, int& status) {
        for (;;) {
            if (watched_->Reap(status)) return true;
            auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now());
            if (left.count() <= 0 || WorksInVain()) return false;
            constexpr milliseconds kLookEvery = seconds(5);
            WaitChild(pid_, static_cast<int>(std::min(left, kLookEvery).count()));
        }
    }

  private:
    pid_t pid_;
    std::optional<WatchedChild> watched_;
};

// Waits for the end of the child and kills it when the time is up. The rule is "(now - start) *
// 1000 > timeout" on a clock of whole seconds, so the kill comes with the first full second for
// which it holds, or when the peer has gone. A child that hangs in the system even then is reported
// as killed and reaped when possible. Returns false when the child could not be killed; then it is
// not reaped.
bool WaitOrKill(Runner& child, int64_t timeoutMs, int& status) {
    auto deadline = Clock::now() + seconds(timeoutMs < 0 ? 0 : timeoutMs / 1000 + 1);
    if (timeoutMs == kNoTimeout) deadline = Clock::time_point::max();
    if (child.ReapBefore(deadline, status)) return true;
    WorkFor nobody(nullptr);  // the end of a killed child is waited for in any case
    if (kill(child.Pid(), SIGKILL) != 0) return false;
    // The child leads a group of its own: everything it has started goes with it.
    kill(-child.Pid(), SIGKILL);
    if (child.ReapBefore(Clock::now() + seconds(1), status)) return true;
    LeaveRunning(child.Pid());
    status = SIGKILL;
    return true;
}

// Looks for the marker in which a program says why it ended with 255. Returns whether there is one,
// with the reason in `errorText` and the marker removed. What another user may have put there to
// change the outcome does not count: a file of his, or one more name of a file of ours, whose first
// line would be told.
bool TakeMarker(const char* path, VyString& errorText) {
    if (path == nullptr) return false;
    UniqueFd file(open(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat status {};
    if (file ? fstat(file.Get(), &status) != 0 : lstat(path, &status) != 0) return false;
    if (status.st_uid != geteuid() || status.st_nlink != 1) return false;
    char line[254];
    ssize_t length = file ? read(file.Get(), line, sizeof line) : 0;
    unlink(path);
    std::string_view text(line, static_cast<size_t>(std::max<ssize_t>(length, 0)));
    errorText = text.empty() ? "exec error" : text.substr(0, text.find('\n'));
    return true;
}

void TellExecError(int error, VyString& errorText) {
    char text[256];
    SystemErrorText(error, text, sizeof text);
    errorText = VyString::Concat("exec error: ", text);
}

}  // namespace

bool RunProcess(std::string_view commandLine, const ChildOptions& options, int64_t timeoutMs,
                int& exitCode, VyString& errorText) {
    errorText.Clear();
    ArgumentList command(commandLine);
    ChildProcess child(command.Arguments(), options, ChildProcess::ExecFailure::kMarked);
    // A program that nobody waits for goes on when the agent ends.
    const bool detached = timeoutMs == kDoNotWait;
    Runner runner(child,
                  detached ? WatchedChild::Fate::kGoesOn : WatchedChild::Fate::kEndsWithAgent);
    const pid_t pid = runner.Pid();
    if (pid < 0) {
        errorText = "fork error";
        return false;
    }
    int status = 0;
    if (detached) {
        if (!runner.ReapBefore(Clock::now() + seconds(1), status)) {
            LeaveRunning(pid);
            exitCode = 0;
            return true;
        }
    } else if (!WaitOrKill(runner, timeoutMs, status)) {
        LeaveRunning(pid);
        errorText = "cannot terminate process";
        return false;
    } else if (WIFSIGNALED(status)) {
        errorText = "abnormal termination";
        return false;
    }
    // A program that was not waited for and died by a signal counts as exit code 0 here: only the
    // high byte of the status matters.
    int code = (status >> 8) & 0xff;
    if (int error = child.ExecError(); error != 0) {
        TellExecError(error, errorText);
        return false;
    }
    if (code == kExecFailed && TakeMarker(child.MarkerPath(pid), errorText)) return false;
    exitCode = code;
    return true;
}

bool RunProcessQuiet(std::string_view commandLine, std::string_view workDir,
                     std::string_view tmpDir, int64_t timeoutMs, int& exitCode,
                     VyString& errorText) {
    ChildOptions options;
    options.tmpDir = tmpDir;
    options.workDir = workDir;
    return RunProcess(commandLine, options, timeoutMs, exitCode, errorText);
}

bool RunShell(const char* command, std::string_view tmpDir) {
    const char* arguments[] = {"/bin/sh", "-c", command, nullptr};
    ChildOptions options;
    options.tmpDir = tmpDir;
    ChildProcess child(const_cast<char* const*>(arguments), options,
                       ChildProcess::ExecFailure::kSilent);
    Runner runner(child, WatchedChild::Fate::kEndsWithAgent);
    if (runner.Pid() < 0) return false;
    int status = 0;
    if (!WaitOrKill(runner, kNoTimeout, status)) LeaveRunning(runner.Pid());
    return true;
}

}  // namespace zot
