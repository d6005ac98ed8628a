// Starts one child process. The constructor prepares everything the child will need; between fork
// and exec the child makes only async-signal-safe calls.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace zot {

struct ChildOptions {
    std::string_view tmpDir;   // exported to the child as TMPDIR; also holds the marker file
    std::string_view workDir;  // empty: the agent's own
    // Regular files or devices that open at once; empty: /dev/null. The same path for output and
    // error makes them share one open file, so that neither overwrites the other.
    std::string_view stdinPath;
    std::string_view stdoutPath;
    std::string_view stderrPath;
};

// A number, 0 at first, in memory that a child and its parent share.
class SharedNumber {
  public:
    SharedNumber();
    ~SharedNumber();
    SharedNumber(const SharedNumber&) = delete;
    SharedNumber& operator=(const SharedNumber&) = delete;

    // Null when there is no memory for it.
    volatile int* Get() const noexcept { return number_; }

  private:
    volatile int* number_ = nullptr;
};

// The path of the file in which a program says why it ended with 255. The agent's own child does
// not use it: others who can write to the directory know the name.
class MarkerName {
  public:
    // Prepares all but the process id. Without a usable directory there is no marker.
    void Prepare(const ChildOptions& options);
    // The path for a process id, nullptr when there is no marker. Async-signal-safe.
    const char* For(pid_t pid) noexcept;

  private:
    static constexpr size_t kRoomForPid = 32;

    char path_[1024 + kRoomForPid] = "";
    size_t prefix_ = 0;  // 0: none
};

class ChildProcess {
  public:
    enum class ExecFailure { kSilent, kMarked };

    // `arguments` is NULL-terminated and outlives the object; its first element is the program,
    // searched for in PATH when it has no "/". Without arguments the exec fails with ENOENT.
    ChildProcess(char* const* arguments, const ChildOptions& options, ExecFailure onFailure);
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    // Returns the process id, or -1 with errno. By then (with a workDir: soon after) the child
    // leads a session and a process group of its own. It inherits descriptors 0 to 2, the
    // descriptor limit that the agent was given, and default signal actions. If the program cannot
    // be executed the child exits with 255.
    pid_t Start();

    // After the end of the child: the errno of a stream that could not be opened or a program that
    // could not be executed, else 0.
    int ExecError() const noexcept { return *execError_.Get(); }
    const char* MarkerPath(pid_t pid) noexcept { return marker_.For(pid); }

  private:
    void PrepareEnvironment(std::string_view tmpDir);
    void PrepareCandidates();

    [[noreturn]] void RunChild() noexcept;
    bool OpenStreams() const noexcept;
    int Execute() noexcept;

    char* const* arguments_;
    std::vector<char*> environment_;
    std::string tmpDirVariable_;
    std::vector<std::string> candidates_;  // files to execute, in the order of the search
    std::vector<char*> shellArguments_;    // for a script that names no interpreter
    std::string stdinPath_, stdoutPath_, stderrPath_, workDir_;
    SharedNumber execError_;
    MarkerName marker_;
};

}  // namespace zot
