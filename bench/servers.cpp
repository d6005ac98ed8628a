#include "servers.h"

#include <errno.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <spawn.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <random>
#include <stdexcept>

#include "base/platform/system.h"

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

UniqueFd Send(const Server& server) {
    UniqueFd fd = Connect(server.port);
    if (fd) send(fd.Get(), server.request.data(), server.request.size(), MSG_NOSIGNAL);
    return fd;
}

size_t Ask(const Server& server) {
    UniqueFd fd = Send(server);
    char buffer[4096];
    size_t total = 0;
    for (ssize_t n; fd && (n = recv(fd.Get(), buffer, sizeof buffer, 0)) > 0;) {
        total += static_cast<size_t>(n);
    }
    return total;
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
        const bool answered = Ask(server) >= server.replySize;
        waited = Clock::now() - start;
        if (answered) return waited.count();
    } while (true);
}

UniqueFd Connect(uint16_t port) {
    UniqueFd fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address = Loopback(port);
    if (connect(fd.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) fd.Reset();
    return fd;
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
        exchange = {Send(server), 0};
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
        if (Ask(server) < server.replySize) Fail(server, "short reply");
        times.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
    }
    return Median(std::move(times));
}

double Median(std::vector<double> values) {
    if (values.empty()) return 0;
    std::nth_element(values.begin(), values.begin() + std::ssize(values) / 2, values.end());
    return values[values.size() / 2];
}

}  // namespace zot::bench
