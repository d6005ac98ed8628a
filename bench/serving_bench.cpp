// Whole requests over loopback, beside a bare server and, where installed, the Zabbix agent in
// clear text: the start; the system calls of a request (with strace); processor time per request
// and requests per second, with few and many requests at a time. The servers take turns in rounds,
// in random order; the table shows the median of the rounds' ratios, so that other work on the
// machine hardly counts.
//
//   serving_bench [ROUNDS]
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "servers.h"

namespace zot::bench {
namespace {

constexpr char kZabbix[] = "/usr/sbin/zabbix_agentd";
constexpr char kStrace[] = "/usr/bin/strace";

std::mt19937 random(std::random_device{}());

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

// The calls that strace counts while so many requests come one after the other.
double SystemCalls(const Folder& folder, const Server& server, int requests) {
    const std::string counts = folder / "calls";
    const pid_t tracer =
        Start({kStrace, "-c", "-f", "-o", counts, "-p", std::to_string(server.pid)});
    sleep(1);
    Load(server, requests, 1);
    kill(tracer, SIGINT);
    waitpid(tracer, nullptr, 0);
    // The last line is the sum: percentage, seconds, microseconds a call, calls.
    std::ifstream lines(counts);
    std::string line;
    for (std::string next; std::getline(lines, next);) line = next;
    double calls = 0;
    std::sscanf(line.c_str(), "%*s %*s %*s %lf", &calls);
    return calls / requests;
}

void MeasureSystemCalls(const Folder& folder, const std::vector<Server>& agents) {
    if (access(kStrace, X_OK) != 0) {
        std::printf("No %s here: system calls not counted.\n", kStrace);
        return;
    }
    std::printf("\nsystem calls for each request, one in flight\n");
    for (const Server& agent : agents) {
        const bool verbose = agent.name == "verbose";
        Print(verbose ? "agent with verbose log" : "agent", SystemCalls(folder, agent, 1000),
              verbose ? 0 : 7);
    }
}

void Run(int rounds) {
    Folder folder;
    Running running;
    std::vector<Server>& servers = running.servers;
    std::printf("%-58s %8s %8s\n", "", "measured", "goal");
    // Before there are other agents that share the memory of this one.
    MeasureStart(folder, rounds);
    for (bool verbose : {false, true}) {
        servers.push_back(
            StartAgent(folder, {.name = verbose ? "verbose" : "agent", .verbose = verbose}));
    }
    MeasureSystemCalls(folder, servers);
    servers.push_back(StartBare());
    if (access(kZabbix, X_OK) == 0) {
        servers.push_back(StartZabbix(folder));
    } else {
        std::printf("No %s here: measured without the Zabbix agent.\n", kZabbix);
    }
    for (const Server& server : servers) AwaitReply(server);
    MeasureRequests(servers, rounds);
}

}  // namespace
}  // namespace zot::bench

int main(int argc, char** argv) { return zot::bench::Main(argc, argv, 15, zot::bench::Run); }
