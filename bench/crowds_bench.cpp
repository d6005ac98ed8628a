// What many connections cost, and what they can take from a peer that asks quick questions: idle
// and slow ones, strangers that keep coming back while descriptors or tasks are few, slow checks.
// Latencies are compared with those of a second agent that nobody else asks: rounds in random
// order, median of their ratios.
//
//   crowds_bench [ROUNDS]
#include <signal.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <new>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "servers.h"

namespace zot::bench {
namespace {

std::mt19937 random(std::random_device{}());

// How much longer requests take at the crowded agent than at the other.
double LatencyRatio(const Server& crowded, const Server& alone, int rounds) {
    std::vector<double> ours;
    std::vector<double> theirs;
    for (int round = 0; round < rounds; ++round) {
        const bool crowdedFirst = random() % 2 == 0;
        if (crowdedFirst) ours.push_back(MedianLatency(crowded, 300));
        theirs.push_back(MedianLatency(alone, 300));
        if (!crowdedFirst) ours.push_back(MedianLatency(crowded, 300));
    }
    return RatioOf(ours, theirs);
}

std::vector<UniqueFd> ConnectMany(const Server& server, size_t count) {
    std::vector<UniqueFd> connections;
    while (connections.size() < count) {
        connections.push_back(Connect(server.port));
        if (!connections.back()) throw std::runtime_error("cannot connect");
    }
    return connections;
}

void MeasureIdle(const Server& crowded, const Server& alone, int rounds) {
    constexpr size_t kIdle = 10000;
    MedianLatency(crowded, 300);
    const long before = crowded.PssKib();
    std::vector<UniqueFd> idle = ConnectMany(crowded, kIdle);
    MedianLatency(crowded, 300);
    std::printf("\n%zu idle connections\n", kIdle);
    Print("KiB for each", static_cast<double>(crowded.PssKib() - before) / kIdle, 0.5);
    Print("threads", static_cast<double>(crowded.Threads()), 4);
    const double cpu = crowded.CpuSeconds();
    sleep(2);
    Print("milliseconds of processor in two seconds", (crowded.CpuSeconds() - cpu) * 1e3, 1);
    Print("latency / alone", LatencyRatio(crowded, alone, rounds), 1.2);
}

// Sends a byte a second on each of its connections, of a packet that stays incomplete for long.
class SlowSenders {
  public:
    SlowSenders(const Server& server, size_t count)
        : connections_(ConnectMany(server, count)), thread_([this] { Work(); }) {}
    ~SlowSenders() {
        stop_ = true;
        thread_.join();
    }

  private:
    void Work() {
        const std::string packet("\xff\xff\0\0\3\x12\x10\0", 8);
        for (size_t turn = 0; !stop_; ++turn) {
            const char byte = turn < packet.size() ? packet[turn] : 'x';
            const auto start = Clock::now();
            for (const UniqueFd& connection : connections_) {
                send(connection.Get(), &byte, 1, MSG_NOSIGNAL);
                usleep(static_cast<useconds_t>(900000 / connections_.size()));
            }
            while (!stop_ && Clock::now() - start < std::chrono::seconds(1)) usleep(1000);
        }
    }

    std::vector<UniqueFd> connections_;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

void MeasureSlow(const Server& crowded, const Server& alone, int rounds) {
    constexpr size_t kSlow = 1000;
    SlowSenders slow(crowded, kSlow);
    std::printf("\n%zu connections at a byte a second\n", kSlow);
    Print("latency / alone", LatencyRatio(crowded, alone, rounds), 1.2);
    Print("threads", static_cast<double>(crowded.Threads()), 4);
}

// Of ten questions, spread over a second.
int Answered(const Server& server) {
    int answered = 0;
    for (int i = 0; i < 10; ++i) {
        UniqueFd fd = Send(server, server.request);
        const timeval patience = {5, 0};
        if (fd) setsockopt(fd.Get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        answered += fd && Receive(fd.Get()) >= server.replySize ? 1 : 0;
        usleep(100000);
    }
    return answered;
}

// Connections that have said nothing but a byte, each of which comes back as soon as it is the one
// that has been there for longest. They live in processes of their own, since one may not hold that
// many descriptors.
class Strangers {
  public:
    static constexpr size_t kCount = 20000;

    explicit Strangers(const Server& server) {
        void* shared = mmap(nullptr, sizeof *arrivals_, PROT_READ | PROT_WRITE,
                            MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (shared == MAP_FAILED) throw std::runtime_error("no memory");
        arrivals_ = new (shared) std::atomic<size_t>(0);
        for (size_t i = 0; i < processes_.size(); ++i) {
            processes_[i] = fork();
            if (processes_[i] == 0) Come(server, static_cast<uint8_t>(2 + i));
        }
    }
    ~Strangers() {
        for (const pid_t process : processes_) {
            kill(process, SIGKILL);
            waitpid(process, nullptr, 0);
        }
        munmap(arrivals_, sizeof *arrivals_);
    }
    Strangers(const Strangers&) = delete;
    Strangers& operator=(const Strangers&) = delete;

    size_t Arrivals() const { return *arrivals_; }

  private:
    [[noreturn]] void Come(const Server& server, uint8_t from) {
        std::vector<UniqueFd> held(kCount / processes_.size());
        for (size_t turn = 0;; ++turn, ++*arrivals_) {
            UniqueFd& stranger = held[turn % held.size()];
            stranger.Reset();
            stranger = Connect(server.port, from);
            if (turn % 2 == 0 && stranger) send(stranger.Get(), "\x40", 1, MSG_NOSIGNAL);
        }
    }

    std::array<pid_t, 2> processes_{};
    std::atomic<size_t>* arrivals_ = nullptr;
};

void MeasureStrangers(const Server& agent) {
    const auto start = Clock::now();
    Strangers strangers(agent);
    while (strangers.Arrivals() < Strangers::kCount) usleep(1000);
    const int answered = Answered(agent);
    const std::chrono::duration<double> time = Clock::now() - start;
    std::printf("\n%zu strangers that keep coming back, %.0f a second, 1024 descriptors\n",
                Strangers::kCount, static_cast<double>(strangers.Arrivals()) / time.count());
    Print("answered, of ten", answered, 10, false);
    Print("threads", static_cast<double>(agent.Threads()), 4);
}

void MeasureFewTasks(const Server& agent) {
    SlowSenders slow(agent, 320);
    sleep(2);
    std::printf("\n320 connections at a byte a second, at most 6 tasks\n");
    Print("answered, of ten", Answered(agent), 10, false);
}

void MeasureSlowChecks(const char* title, const std::string& request, const Server& agent,
                       const Server& alone, int rounds) {
    constexpr int kChecks = 60;
    std::vector<double> before;
    std::vector<double> beside;
    for (int round = 0; round < rounds; ++round) before.push_back(MedianLatency(agent, 300));
    std::vector<UniqueFd> checks;
    for (int i = 0; i < kChecks; ++i) checks.push_back(Send(agent, request));
    while (agent.Threads() < kChecks) usleep(1000);
    const double ratio = LatencyRatio(agent, alone, rounds);
    beside.push_back(MedianLatency(agent, 300));
    const bool allRunning = agent.Threads() >= kChecks;
    for (const UniqueFd& check : checks) {
        if (Receive(check.Get()) < 4) throw std::runtime_error("a slow check without an answer");
    }
    const auto end = Clock::now();
    while (agent.Threads() > 3 && Clock::now() - end < std::chrono::seconds(20)) usleep(10000);
    const std::chrono::duration<double> back = Clock::now() - end;
    std::printf("\n%d %s at once%s\n", kChecks, title, allRunning ? "" : " (ended too early)");
    Print("latency / agent without them on the same machine", ratio, 1.2);
    Print("latency / before", Median(beside) / Median(before), 0);
    Print("seconds until the threads are gone", back.count(), 10);
}

// Sixty walks through it take seconds.
void MakeTree(const std::string& top) {
    for (int folder = 0; folder < 500; ++folder) {
        const std::string path = top + "/" + std::to_string(folder);
        std::filesystem::create_directories(path);
        for (int file = 0; file < 200; ++file) {
            std::ofstream(path + "/" + std::to_string(file)) << file;
        }
    }
}

void Run(int rounds) {
    Folder folder;
    Running running;
    auto start = [&](const AgentSetup& setup) {
        running.servers.push_back(StartAgent(folder, setup));
        return running.servers.back();
    };
    const Server alone = start({.name = "alone"});
    std::printf("%-58s %8s %8s\n", "", "measured", "goal");
    const Server crowded = start({.name = "crowded"});
    MeasureIdle(crowded, alone, rounds);
    MeasureSlow(crowded, alone, rounds);
    MeasureStrangers(start({.name = "few", .before = "ulimit -n 1024; exec"}));
    if (geteuid() == 0) {
        // The limit applies to all processes of a user, but not to root.
        MeasureFewTasks(start({.name = "tasks",
                               .before = "ulimit -u 6; exec setpriv --reuid 54321 --regid 54321 "
                                         "--clear-groups"}));
    } else {
        std::printf("\nWith few tasks: measured by an administrator only.\n");
    }
    const Server busy = start({.name = "busy"});
    MeasureSlowChecks("scripts", RequestFor("TEST-ExternalPrg\n/bin/sleep 6\n0\n0\n20000\n\r"),
                      busy, alone, rounds);
    MakeTree(folder / "tree");
    MeasureSlowChecks("folder sizes",
                      RequestFor("TEST-FolderSize\n" + (folder / "tree") + "\n1\n0\n0\n0\n0\n\r"),
                      busy, alone, std::min(rounds, 3));
}

}  // namespace
}  // namespace zot::bench

int main(int argc, char** argv) { return zot::bench::Main(argc, argv, 9, zot::bench::Run); }
