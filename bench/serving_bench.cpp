// Whole requests over loopback, beside a bare server and, where installed, the Zabbix agent in
// clear text: processor time per request and requests per second, with few and many requests at a
// time; the cost of idle and slow connections; the start. The servers take turns in rounds, in
// random order; the table shows the median of the rounds' ratios, so that other work on the machine
// hardly counts.
//
//   serving_bench [ROUNDS]
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "base/twofish.h"
#include "client/request_packet.h"
#include "servers.h"

namespace zot::bench {
namespace {

constexpr char kPassword[] = "password";
constexpr size_t kReplySize = 60;
constexpr char kZabbix[] = "/usr/sbin/zabbix_agentd";

std::mt19937 random(std::random_device{}());
bool allReached = true;

void Print(const char* label, double value, double goal, bool smallerIsBetter = true) {
    const bool reached = goal == 0 || (smallerIsBetter ? value <= goal : value >= goal);
    allReached = allReached && reached;
    std::printf("%-58s %8.2f ", label, value);
    goal == 0 ? std::printf("%8s\n", "-")
              : std::printf("%8.2f%s\n", goal, reached ? "" : "  MISSED");
}

class Folder {
  public:
    Folder() {
        if (mkdtemp(path_) == nullptr) throw std::runtime_error("no folder");
    }
    ~Folder() { std::filesystem::remove_all(path_); }
    std::string operator/(const std::string& name) const { return path_ + ("/" + name); }

  private:
    char path_[32] = "/tmp/zot-bench-XXXXXX";
};

// A question whose answer is 60 bytes long and costs the machine nothing.
std::string Request() {
    return client::BuildRequest(kPassword, "0123456789abcdef", std::string(32, 'x') + "\n\r");
}

Server StartAgent(const Folder& folder, const std::string& name, bool verbose) {
    Server agent{name, FreePort(), 0, Request(), kReplySize};
    const std::string config = folder / (name + ".cfg");
    std::ofstream(config) << "host=127.0.0.1\nport=" << agent.port << "\npassword=" << kPassword
                          << "\nzotpath=" ZOT_BUILD_DIR "/zot\ntmpdir=" << (folder / "")
                          << "\nlogfails=0\ntimeout=-1\nverboselogfile=" << name << ".log\n";
    // A daemon's log, without a console.
    std::vector<std::string> arguments = {ZOT_BUILD_DIR "/zot", "-d"};
    if (verbose) arguments.emplace_back("-v");
    arguments.push_back(config);
    std::ofstream(config, std::ios::app) << "pidfile=" << (folder / (name + ".pid")) << "\n";
    agent.pid = Start(std::move(arguments));
    return agent;
}

// In daemon mode another process serves than the one that was started.
void AwaitDaemon(const Folder& folder, Server& agent) {
    AwaitReply(agent);
    std::ifstream(folder / (agent.name + ".pid")) >> agent.pid;
}

Server StartBare() {
    Server bare{"bare", FreePort(), 0, Request(), kReplySize};
    bare.pid = Start(
        {ZOT_BUILD_DIR "/bare_server", std::to_string(bare.port), std::to_string(kReplySize)});
    return bare;
}

Server StartZabbix(const Folder& folder) {
    // A header of 13 bytes and the question; the answer has the same header, and 47 bytes.
    const std::string question = "agent.hostname";
    std::string request = "ZBXD\1" + std::string(8, '\0') + question;
    request[5] = static_cast<char>(question.size());
    Server zabbix{"zabbix", FreePort(), 0, request, kReplySize};
    std::ofstream(folder / "zabbix.conf")
        << "Server=127.0.0.1\nListenIP=127.0.0.1\nListenPort=" << zabbix.port
        << "\nHostname=" << std::string(kReplySize - 13, 'h')
        << "\nLogType=console\nAllowRoot=1\nStartAgents=3\n"
        << "PidFile=" << (folder / "zabbix.pid") << "\n";
    zabbix.pid = Start({kZabbix, "-f", "-c", folder / "zabbix.conf"});
    return zabbix;
}

// The processor time of a server and of its serving children.
double CpuOf(const Server& server) {
    double sum = server.CpuSeconds();
    std::ifstream children("/proc/" + std::to_string(server.pid) + "/task/" +
                           std::to_string(server.pid) + "/children");
    for (Server child; children >> child.pid;) sum += child.CpuSeconds();
    return sum;
}

struct Figures {
    std::vector<double> cpu;   // seconds a request
    std::vector<double> rate;  // requests a second
};

double RatioOf(const std::vector<double>& ours, const std::vector<double>& peers) {
    std::vector<double> ratios;
    for (size_t i = 0; i < ours.size() && i < peers.size(); ++i)
        ratios.push_back(ours[i] / peers[i]);
    return Median(std::move(ratios));
}

void MeasureRequests(const std::vector<Server>& servers, int rounds) {
    constexpr int kRequests = 1500;
    for (int inFlight : {1, 8, 64}) {
        std::map<std::string, Figures> figures;
        for (int round = 0; round < rounds; ++round) {
            std::vector<Server> turns = servers;
            std::shuffle(turns.begin(), turns.end(), random);
            for (const Server& server : turns) {
                const double before = CpuOf(server);
                figures[server.name].rate.push_back(Load(server, kRequests, inFlight));
                figures[server.name].cpu.push_back((CpuOf(server) - before) / kRequests);
            }
        }
        const bool many = inFlight == 64;
        std::printf("\n%d in flight; bare server: %.1f us of processor, %.0f requests a second\n",
                    inFlight, Median(figures["bare"].cpu) * 1e6, Median(figures["bare"].rate));
        Print("processor time, agent / bare", RatioOf(figures["agent"].cpu, figures["bare"].cpu),
              many ? 2.1 : 2.0);
        Print("processor time, agent with verbose log / bare",
              RatioOf(figures["verbose"].cpu, figures["bare"].cpu), 2.8);
        Print("requests per second, agent / bare",
              RatioOf(figures["agent"].rate, figures["bare"].rate), inFlight > 1 ? 0.75 : 0, false);
        if (figures.contains("zabbix")) {
            Print("processor time, agent / Zabbix agent",
                  RatioOf(figures["agent"].cpu, figures["zabbix"].cpu), 1.4);
            Print("processor time, Zabbix agent / bare",
                  RatioOf(figures["zabbix"].cpu, figures["bare"].cpu), 0);
        }
    }
}

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

void MeasureCrowds(const Server& crowded, const Server& alone, int rounds) {
    constexpr size_t kIdle = 10000;
    constexpr size_t kSlow = 1000;
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
    idle.clear();

    std::vector<UniqueFd> slow = ConnectMany(crowded, kSlow);
    std::atomic<bool> stop{false};
    // A packet that stays incomplete for a long time.
    const std::string packet("\xff\xff\0\0\3\x12\x10\0", 8);
    std::thread sender([&] {
        for (size_t turn = 0; !stop; ++turn) {
            for (size_t i = 0; i < slow.size() && !stop; ++i) {
                const char byte = turn < packet.size() ? packet[turn] : 'x';
                send(slow[i].Get(), &byte, 1, MSG_NOSIGNAL);
                if (i % 10 == 9) usleep(10000);
            }
        }
    });
    std::printf("\n%zu connections at a byte a second\n", kSlow);
    Print("latency / alone", LatencyRatio(crowded, alone, rounds), 1.2);
    Print("threads", static_cast<double>(crowded.Threads()), 4);
    stop = true;
    sender.join();
}

void MeasureStart(const Folder& folder, int rounds) {
    std::vector<double> ours;
    std::vector<double> bares;
    std::vector<double> pss;
    for (int round = 0; round < rounds; ++round) {
        Server agent{"start", FreePort(), 0, Request(), kReplySize};
        const std::string config = folder / "start.cfg";
        std::ofstream(config) << "host=127.0.0.1\nport=" << agent.port << "\npassword=" << kPassword
                              << "\nzotpath=" ZOT_BUILD_DIR "/zot\ntmpdir=" << (folder / "")
                              << "\nlogfails=0\n";
        auto begin = Clock::now();
        agent.pid = Start({ZOT_BUILD_DIR "/zot", "-i", config});
        ours.push_back(AwaitReply(agent, begin));
        usleep(100000);
        pss.push_back(static_cast<double>(agent.PssKib()) / 1024);
        agent.Stop();
        begin = Clock::now();
        Server bare = StartBare();
        bares.push_back(AwaitReply(bare, begin));
        bare.Stop();
    }
    std::printf("\nstart; bare server %.1f ms\n", Median(bares) * 1e3);
    Print("start to first reply, agent / bare", RatioOf(ours, bares), 1.3);
    Print("idle PSS in MiB", Median(pss), 2.2);
}

void RaiseDescriptorLimit() {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

// Whatever happens, nothing is left running.
struct Running {
    ~Running() {
        for (Server& server : servers) server.Stop();
    }
    std::vector<Server> servers;
};

void Run(int rounds) {
    TwofishInitialise();
    RaiseDescriptorLimit();
    Folder folder;
    Running running;
    std::vector<Server>& servers = running.servers;
    servers.push_back(StartBare());
    for (bool verbose : {false, true}) {
        servers.push_back(StartAgent(folder, verbose ? "verbose" : "agent", verbose));
        AwaitDaemon(folder, servers.back());
    }
    if (access(kZabbix, X_OK) == 0) {
        servers.push_back(StartZabbix(folder));
    } else {
        std::printf("No %s here: measured without the Zabbix agent.\n", kZabbix);
    }
    for (const Server& server : servers) AwaitReply(server);
    std::printf("%-58s %8s %8s\n", "", "measured", "goal");
    MeasureRequests(servers, rounds);
    servers.push_back(StartAgent(folder, "crowded", false));
    AwaitDaemon(folder, servers.back());
    MeasureCrowds(servers.back(), servers[1], rounds);
    MeasureStart(folder, rounds);
}

}  // namespace
}  // namespace zot::bench

int main(int argc, char** argv) {
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    try {
        zot::bench::Run(argc > 1 ? std::max(1, std::atoi(argv[1])) : 15);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 2;
    }
    return zot::bench::allReached ? 0 : 1;
}
