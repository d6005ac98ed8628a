#include "servers.h"

#include <errno.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <spawn.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <random>
#include <stdexcept>
#include <system_error>

#include "base/platform/system.h"
#include "base/twofish.h"
#include "client/request_packet.h"

namespace zot::bench {
namespace {

sockaddr_in Loopback(uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

[[noreturn]] void Fail(const Server& server, const char* what) {
    throw std::runtime_error(server.name + ": " + what + ", error " + std::to_string(errno));
}

// The number after the name in a file of /proc.
long ProcValue(pid_t pid, const char* file, const std::string& name) {
    std::ifstream lines("/proc/" + std::to_string(pid) + "/" + file);
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with(name)) return std::atol(line.c_str() + name.size());
    }
    return 0;
}

bool allReached = true;

void RaiseDescriptorLimit() {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace

double Server::CpuSeconds() const {
    clockid_t clock;
    timespec time{};
    if (clock_getcpuclockid(pid, &clock) != 0 || clock_gettime(clock, &time) != 0) return 0;
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

long Server::PssKib() const { return ProcValue(pid, "smaps_rollup", "Pss:"); }

long Server::Threads() const { return ProcValue(pid, "status", "Threads:"); }

void Server::Stop() {
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
}

Folder::Folder() {
    if (mkdtemp(path_) == nullptr || chmod(path_, 01777) != 0)
        throw std::runtime_error("no folder");
}

Folder::~Folder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::string Request() { return RequestFor(std::string(32, 'x') + "\n\r"); }

std::string RequestFor(const std::string& text) {
    return client::BuildRequest(kPassword, "0123456789abcdef", text);
}

Server StartAgent(const Folder& folder, const AgentSetup& setup) {
    Server agent{setup.name, FreePort(), 0, Request(), kReplySize};
    const std::string config = folder / (setup.name + ".cfg");
    const std::string pidFile = folder / (setup.name + ".pid");
    std::ofstream(config) << "host=127.0.0.1\nport=" << agent.port << "\npassword=" << kPassword
                          << "\nzotpath=" ZOT_BUILD_DIR "/zot\ntmpdir=" << (folder / "")
                          << "\nlogfails=0\ntimeout=-1\nverboselogfile=" << setup.name
                          << ".log\npidfile=" << pidFile << "\n";
    // As a daemon, since that logs without a console.
    const pid_t starter = Start({"/bin/sh", "-c", setup.before + " \"$@\"", "sh",
                                 ZOT_BUILD_DIR "/zot", "-d", setup.verbose ? "-v" : "-p",
                                 setup.verbose ? config : std::to_string(agent.port), config});
    AwaitReply(agent);
    waitpid(starter, nullptr, 0);
    std::ifstream(pidFile) >> agent.pid;
    return agent;
}

uint16_t FreePort() {
    // Below the ports that connections get, and low enough for every server here.
    static std::mt19937 random(std::random_device{}());
    for (;;) {
        const auto port = static_cast<uint16_t>(10000 + random() % 20000);
        UniqueFd fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_in address = Loopback(port);
        if (bind(fd.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) return port;
    }
}

pid_t Start(std::vector<std::string> arguments) {
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&files, 2, "/dev/null", O_WRONLY, 0);
    // A scheduling group of its own for each, as a daemon has it.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
    std::vector<char*> words;
    for (std::string& argument : arguments) words.push_back(argument.data());
    words.push_back(nullptr);
    pid_t child = 0;
    if (posix_spawn(&child, words[0], &files, &attributes, words.data(), ProcessEnvironment()) !=
        0) {
        throw std::runtime_error("cannot start " + arguments[0]);
    }
    posix_spawn_file_actions_destroy(&files);
    posix_spawnattr_destroy(&attributes);
    return child;
}

double AwaitReply(const Server& server, Clock::time_point start) {
    std::chrono::duration<double> waited{};
    do {
        if (waited.count() > 10) Fail(server, "does not answer");
        if (waited.count() > 0) usleep(50);
        UniqueFd fd = Send(server, server.request);
        const bool answered = fd && Receive(fd.Get()) >= server.replySize;
        waited = Clock::now() - start;
        if (answered) return waited.count();
    } while (true);
}

UniqueFd Connect(uint16_t port, uint8_t from) {
    UniqueFd fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (from != 1) {
        // The number of a port is chosen with the peer known, or they would run out.
        const int on = 1;
        setsockopt(fd.Get(), IPPROTO_IP, IP_BIND_ADDRESS_NO_PORT, &on, sizeof on);
        sockaddr_in own = Loopback(0);
        own.sin_addr.s_addr = htonl(INADDR_LOOPBACK - 1 + from);
        if (bind(fd.Get(), reinterpret_cast<sockaddr*>(&own), sizeof own) != 0) return UniqueFd();
    }
    sockaddr_in address = Loopback(port);
    if (!fd || connect(fd.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
        fd.Reset();
    return fd;
}

UniqueFd Send(const Server& server, const std::string& request) {
    UniqueFd fd = Connect(server.port);
    if (fd) send(fd.Get(), request.data(), request.size(), MSG_NOSIGNAL);
    return fd;
}

size_t Receive(int descriptor) {
    char buffer[4096];
    size_t total = 0;
    for (ssize_t n; (n = recv(descriptor, buffer, sizeof buffer, 0)) > 0;) {
        total += static_cast<size_t>(n);
    }
    return total;
}

double Load(const Server& server, int requests, int inFlight) {
    const auto start = Clock::now();
    UniqueFd queue(epoll_create1(EPOLL_CLOEXEC));
    struct Exchange {
        UniqueFd fd;
        size_t received = 0;
    };
    std::vector<Exchange> exchanges(static_cast<size_t>(inFlight));
    int begun = 0;
    auto begin = [&](Exchange& exchange) {
        exchange = {Send(server, server.request), 0};
        if (!exchange.fd) Fail(server, "connect");
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.ptr = &exchange;
        epoll_ctl(queue.Get(), EPOLL_CTL_ADD, exchange.fd.Get(), &event);
        ++begun;
    };
    for (Exchange& exchange : exchanges) begin(exchange);
    for (int done = 0; done < requests;) {
        epoll_event events[64];
        int count = epoll_wait(queue.Get(), events, 64, 10000);
        if (count <= 0) Fail(server, "no reply");
        for (int i = 0; i < count; ++i) {
            auto& exchange = *static_cast<Exchange*>(events[i].data.ptr);
            char buffer[4096];
            ssize_t n = recv(exchange.fd.Get(), buffer, sizeof buffer, 0);
            if (n > 0) {
                exchange.received += static_cast<size_t>(n);
                continue;
            }
            if (exchange.received < server.replySize) Fail(server, "short reply");
            exchange.fd.Reset();
            ++done;
            if (begun < requests) begin(exchange);
        }
    }
    return requests / std::chrono::duration<double>(Clock::now() - start).count();
}

double MedianLatency(const Server& server, int requests) {
    std::vector<double> times;
    for (int i = 0; i < requests; ++i) {
        const auto start = Clock::now();
        UniqueFd fd = Send(server, server.request);
        if (!fd || Receive(fd.Get()) < server.replySize) Fail(server, "short reply");
        times.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
    }
    return Median(std::move(times));
}

double Median(std::vector<double> values) {
    if (values.empty()) return 0;
    std::nth_element(values.begin(), values.begin() + std::ssize(values) / 2, values.end());
    return values[values.size() / 2];
}

double RatioOf(const std::vector<double>& ours, const std::vector<double>& peers) {
    std::vector<double> ratios;
    for (size_t i = 0; i < ours.size() && i < peers.size(); ++i) {
        ratios.push_back(ours[i] / peers[i]);
    }
    return Median(std::move(ratios));
}

void Print(const char* label, double value, double goal, bool smallerIsBetter) {
    const bool reached = goal == 0 || (smallerIsBetter ? value <= goal : value >= goal);
    allReached = allReached && reached;
    std::printf("%-58s %8.2f ", label, value);
    goal == 0 ? std::printf("%8s\n", "-")
              : std::printf("%8.2f%s\n", goal, reached ? "" : "  MISSED");
}

int Main(int argc, char** argv, int rounds, void (*run)(int rounds)) {
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    TwofishInitialise();
    RaiseDescriptorLimit();
    try {
        run(argc > 1 ? std::max(1, std::atoi(argv[1])) : rounds);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 2;
    }
    return allReached ? 0 : 1;
}

}  // namespace zot::bench
