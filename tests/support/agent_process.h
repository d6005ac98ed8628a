// The real agent for the system tests: a throw-away configuration on a free port of the loopback
// interface, an executable from the build directory, and its end together with the test.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "client/agent_client.h"
#include "tests/support/temp_dir.h"

namespace zot::test {

// For every wait that ends as soon as what it waits for happens.
constexpr std::chrono::milliseconds kPatience{20000};

// Checks every few milliseconds, until the condition holds (true) or the limit has passed (false).
bool WaitUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit = kPatience);

// What a hostile or an ordinary peer does on an open connection; each fails the test when it
// cannot.
void Send(client::AgentConnection& connection, std::string_view bytes);
// Everything that the agent sends until it closes the connection.
std::string UntilClose(client::AgentConnection& connection,
                       std::chrono::milliseconds limit = kPatience);
// The text of the reply to a request under this key.
std::string ReceiveReply(client::AgentConnection& connection, const char* key);

// How often a text occurs in another.
size_t Count(std::string_view text, std::string_view part);

// Lets this process have as many descriptors as the system allows: crowds need them.
void RaiseDescriptorLimit();

// A port of the loopback interface on which nothing listens at the moment.
uint16_t FreePort();

// Asks whatever serves at the target; false when no valid reply comes.
bool TryAsk(const client::Target& target, std::string_view command,
            const std::vector<std::string>& params = {}, client::Answer* answer = nullptr);

struct AgentOptions {
    std::vector<std::string> arguments{"-i"};  // before the configuration file; "-d" for the daemon
    std::string settings{};                  // further configuration lines; they win over the usual
    std::vector<std::string> environment{};  // "NAME=VALUE", added to the environment of the test
    // Words in front of the agent's command line: {"sh", "-c", "ulimit -n 64; exec \"$@\"", "sh"}
    // starts it with few descriptors. They must end in an exec, so that the process stays the same.
    std::vector<std::string> prefix{};
    uint16_t port = 0;       // 0 chooses a free one
    bool awaitReady = true;  // false for starts that should fail: returns at once
};

class AgentProcess {
  public:
    // Writes the configuration and starts the agent. Throws when it is not ready in time; a chosen
    // port that somebody else took in between is replaced by another.
    explicit AgentProcess(AgentOptions options = {});
    // Kills the agent, in interactive and in daemon mode, and collects it.
    ~AgentProcess();
    AgentProcess(const AgentProcess&) = delete;
    AgentProcess& operator=(const AgentProcess&) = delete;

    // The process that serves: the one started, or the daemon, which is the holder of the pid
    // file's lock; 0 when there is none.
    pid_t Pid() const;
    uint16_t Port() const { return port_; }
    const TempDir& Dir() const { return dir_; }
    std::string ConfigPath() const { return dir_ / "zot.cfg"; }
    std::string PidFilePath() const { return dir_ / "zot.pid"; }
    // What the agent has written to its standard output and standard error so far.
    std::string Output() const { return ReadFile(dir_ / "stdout"); }
    std::string ErrorOutput() const { return ReadFile(dir_ / "stderr"); }

    // True as soon as the agent listens: "Listening..." was printed, or the pid file is locked.
    bool WaitUntilReady(std::chrono::milliseconds limit = kPatience);
    // The exit code of the process that was started (in daemon mode: of the one that detaches), or
    // minus the signal that ended it; nothing when it still runs after the limit.
    std::optional<int> WaitForExit(std::chrono::milliseconds limit = kPatience);
    // True as soon as the daemon is gone: its pid file is not locked and its port not served.
    bool WaitForDaemonEnd(std::chrono::milliseconds limit = kPatience) const;
    // Sends a signal to the process that serves.
    void Signal(int number) const;

    // The host, port and password for the client library, with kPatience as the time limit.
    const client::Target& Target() const { return target_; }
    // Asks and fails the test when no valid reply comes.
    client::Answer Ask(std::string_view command, const std::vector<std::string>& params = {}) const;
    // The value of a line of GetInfo; "(none)" without one.
    std::string Info(const std::string& name) const;
    // Waits until every other session has ended.
    bool IsAlone(std::chrono::milliseconds limit = kPatience) const;
    // A packet with the agent's password.
    std::string Packet(const char* key, std::string_view request) const;
    // An open connection to the agent; throws when it cannot be had. Comes again where the system
    // resets what does not fit into the queue of the listener: crowds arrive faster than they are
    // accepted.
    client::AgentConnection Connect() const;

  private:
    bool IsDaemon() const;
    void WriteConfig() const;
    void Start();
    void Stop();
    void StopDaemon() const;
    std::string SanitizerLog() const;
    void ReportSanitizers() const;

    AgentOptions options_;
    TempDir dir_;
    uint16_t port_ = 0;
    client::Target target_;
    pid_t child_ = 0;  // the process that was started, 0 before
    std::optional<int> exit_;
};

}  // namespace zot::test
