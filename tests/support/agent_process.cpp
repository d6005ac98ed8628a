#include "tests/support/agent_process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <thread>

#include "base/owners.h"
#include "base/platform/system.h"
#include "tests/support/loopback.h"

namespace zot::test {
namespace {

constexpr const char* kPassword = "a password for the tests";
constexpr int kPortTaken = 4;  // the agent's exit code when it cannot listen
constexpr int kStartAttempts = 3;

[[noreturn]] void Throw(const std::string& what) { throw std::runtime_error(what); }

// The arguments or environment as execve takes them; the strings stay with the caller.
std::vector<char*> Pointers(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string& text : texts) pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

std::vector<std::string> EnvironmentWith(const std::vector<std::string>& additions) {
    std::vector<std::string> result = additions;
    for (char** entry = ProcessEnvironment(); *entry; ++entry) {
        std::string_view name(*entry, std::string_view(*entry).find('=') + 1);
        bool replaced = std::any_of(additions.begin(), additions.end(),
                                    [name](const auto& text) { return text.starts_with(name); });
        if (!replaced) result.emplace_back(*entry);
    }
    return result;
}

bool PortIsServed(uint16_t port) {
    std::string ignored;
    client::AgentConnection connection;
    return connection.Open("127.0.0.1", port, client::Deadline(kPatience), ignored);
}

}  // namespace

bool WaitUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit) {
    client::Deadline deadline(limit);
    while (!condition()) {
        if (deadline.Remaining() == 0) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

void Send(client::AgentConnection& connection, std::string_view bytes) {
    std::string error;
    EXPECT_TRUE(connection.Send(bytes, client::Deadline(kPatience), error)) << error;
}

std::string UntilClose(client::AgentConnection& connection, std::chrono::milliseconds limit) {
    const client::Deadline deadline(limit);
    std::string bytes;
    char buffer[4096];
    for (;;) {
        pollfd entry = {connection.Fd(), POLLIN, 0};
        const bool ready = poll(&entry, 1, deadline.Remaining()) > 0;
        EXPECT_TRUE(ready) << "the connection stays open";
        const ssize_t got = ready ? recv(connection.Fd(), buffer, sizeof buffer, 0) : 0;
        if (got <= 0) return bytes;
        bytes.append(buffer, static_cast<size_t>(got));
    }
}

std::string ReceiveReply(client::AgentConnection& connection, const char* key) {
    std::string text;
    std::string error;
    EXPECT_TRUE(connection.ReceiveReply(key, client::Deadline(kPatience), text, error)) << error;
    return text;
}

size_t Count(std::string_view text, std::string_view part) {
    size_t count = 0;
    for (size_t at = 0; (at = text.find(part, at)) != text.npos; ++at) ++count;
    return count;
}

void RaiseDescriptorLimit() {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

uint16_t FreePort() { return static_cast<uint16_t>(Loopback(SOCK_STREAM).Port()); }

bool TryAsk(const client::Target& target, std::string_view command,
            const std::vector<std::string>& params, client::Answer* answer) {
    client::Answer ignored;
    std::string error;
    return client::Ask(target, client::ComposeRequest(command, params), answer ? *answer : ignored,
                       error) != 0;
}

AgentProcess::AgentProcess(AgentOptions options) : options_(std::move(options)) {
    target_.password = kPassword;
    target_.timeout = kPatience;
    for (int attempt = 1;; ++attempt) {
        port_ = options_.port ? options_.port : FreePort();
        target_.port = port_;
        WriteConfig();
        Start();
        if (!options_.awaitReady || WaitUntilReady()) return;
        bool retry = exit_ == kPortTaken && options_.port == 0 && attempt < kStartAttempts;
        if (retry) continue;
        std::string report = exit_ ? "exit " + std::to_string(*exit_) + "\n" : "";
        report += Output() + ErrorOutput();
        Stop();
        Throw("the agent does not get ready:\n" + report);
    }
}

AgentProcess::~AgentProcess() { Stop(); }

void AgentProcess::Stop() {
    if (child_ == 0) return;
    if (IsDaemon() && WaitForExit() == 0) StopDaemon();
    if (!exit_) {
        kill(child_, SIGKILL);
        WaitForExit();
    }
    ReportSanitizers();
}

// In a sanitizer build the agent writes what it finds into files of this name, also as a daemon.
std::string AgentProcess::SanitizerLog() const { return dir_ / "sanitizer"; }

void AgentProcess::ReportSanitizers() const {
    for (const auto& entry : std::filesystem::directory_iterator(dir_.Path())) {
        std::string path = entry.path().string();
        if (path.starts_with(SanitizerLog())) ADD_FAILURE() << ReadFile(path);
    }
}

bool AgentProcess::IsDaemon() const {
    const auto& arguments = options_.arguments;
    return std::find(arguments.begin(), arguments.end(), "-i") == arguments.end();
}

void AgentProcess::WriteConfig() const {
    dir_.Write("zot.cfg",
               "zotpath=" ZOT_BUILD_DIR "/zot\nhost=127.0.0.1\nport=" + std::to_string(port_) +
                   "\npassword=" + kPassword + "\npidfile=" + PidFilePath() +
                   "\ntmpdir=" + dir_.Path() + "\n" + options_.settings);
}

void AgentProcess::Start() {
    std::vector<std::string> command = options_.prefix;
    command.emplace_back(ZOT_BUILD_DIR "/zot");
    command.insert(command.end(), options_.arguments.begin(), options_.arguments.end());
    command.push_back(ConfigPath());
    std::vector<std::string> additions = options_.environment;
    for (const char* sanitizer : {"ASAN", "TSAN", "UBSAN"}) {
        additions.push_back(std::string(sanitizer) + "_OPTIONS=log_path=" + SanitizerLog() +
                            ":verify_asan_link_order=0");
    }
    std::vector<std::string> environment = EnvironmentWith(additions);

    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, 0, "/dev/null", O_RDONLY, 0);
    constexpr int kWrite = O_WRONLY | O_CREAT | O_TRUNC | O_APPEND;
    posix_spawn_file_actions_addopen(&files, 1, (dir_ / "stdout").c_str(), kWrite, 0600);
    posix_spawn_file_actions_addopen(&files, 2, (dir_ / "stderr").c_str(), kWrite, 0600);
    exit_.reset();
    int error = posix_spawnp(&child_, command[0].c_str(), &files, nullptr, Pointers(command).data(),
                             Pointers(environment).data());
    posix_spawn_file_actions_destroy(&files);
    if (error != 0) {
        child_ = 0;
        Throw("cannot start " + command[0]);
    }
}

pid_t AgentProcess::Pid() const {
    if (!IsDaemon()) return exit_ ? 0 : child_;
    UniqueFd file(open(PidFilePath().c_str(), O_RDONLY | O_CLOEXEC));
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    bool locked = file && fcntl(file.Get(), F_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
    return locked ? lock.l_pid : 0;
}

bool AgentProcess::WaitUntilReady(std::chrono::milliseconds limit) {
    bool ready = false;
    WaitUntil(
        [&] {
            WaitForExit(std::chrono::milliseconds(0));
            if (!IsDaemon()) {
                ready = !exit_ && Output().find("Listening...\n") != std::string::npos;
                return ready || exit_;
            }
            // The pid is written after the lock, when the port is already open.
            ready = exit_ == 0 && Pid() != 0 && ReadFile(PidFilePath()).ends_with('\n');
            return ready || exit_.value_or(0) != 0;
        },
        limit);
    return ready;
}

std::optional<int> AgentProcess::WaitForExit(std::chrono::milliseconds limit) {
    WaitUntil(
        [this] {
            int status = 0;
            if (exit_ || waitpid(child_, &status, WNOHANG) != child_) return exit_.has_value();
            exit_ = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
            return true;
        },
        limit);
    return exit_;
}

bool AgentProcess::WaitForDaemonEnd(std::chrono::milliseconds limit) const {
    return WaitUntil([this] { return Pid() == 0 && !PortIsServed(port_); }, limit);
}

void AgentProcess::Signal(int number) const {
    pid_t pid = Pid();
    if (pid > 0) kill(pid, number);
}

// A daemon without its own pid file can only be asked to end.
void AgentProcess::StopDaemon() const {
    pid_t pid = Pid();
    if (pid > 0 && ReadFile(PidFilePath()) == std::to_string(pid) + "\n") {
        kill(pid, SIGKILL);
    } else if (PortIsServed(port_)) {
        TryAsk(target_, "QUIT");
    }
    if (!WaitForDaemonEnd()) ADD_FAILURE() << "the daemon on port " << port_ << " does not end";
}

client::Answer AgentProcess::Ask(std::string_view command,
                                 const std::vector<std::string>& params) const {
    client::Answer answer;
    std::string error;
    int valid = client::Ask(target_, client::ComposeRequest(command, params), answer, error);
    EXPECT_TRUE(valid) << command << ": " << error;
    return answer;
}

std::string AgentProcess::Info(const std::string& name) const {
    for (const std::string& line : Ask("GetInfo").lines) {
        if (line.starts_with(name + "=")) return line.substr(name.size() + 1);
    }
    return "(none)";
}

bool AgentProcess::IsAlone(std::chrono::milliseconds limit) const {
    // FreeBSD resets this connection too while a crowd fills its queue.
    auto alone = [this] {
        client::Answer answer;
        return TryAsk(target_, "GetInfo", {}, &answer) &&
               std::find(answer.lines.begin(), answer.lines.end(), "ActiveConnections=1") !=
                   answer.lines.end();
    };
    return WaitUntil(alone, limit);
}

std::string AgentProcess::Packet(const char* key, std::string_view request) const {
    return client::BuildRequest(target_.password, key, request);
}

client::AgentConnection AgentProcess::Connect() const {
    client::AgentConnection connection;
    std::string error;
    const client::Deadline deadline(kPatience);
    if (!WaitUntil([&] { return connection.Open(target_.host, port_, deadline, error); })) {
        Throw(error);
    }
    return connection;
}

}  // namespace zot::test
