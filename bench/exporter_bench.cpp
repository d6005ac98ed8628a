// zot-exporter beside the blackbox exporter of Prometheus (Debian: prometheus-blackbox-exporter),
// which connects to the same agents' ports and asks nothing: processor time of a probe, and memory.
// Then what a large fleet, idle connections and hosts that hang cost. Latencies are compared with
// those of a second exporter that nobody else asks. Rounds in random order, median of their ratios.
//
//   exporter_bench [ROUNDS]
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "servers.h"

namespace zot::bench {
namespace {

constexpr char kBlackbox[] = "/usr/bin/prometheus-blackbox-exporter";
constexpr int kAgents = 16;
constexpr int kHosts = 10000;
constexpr int kHanging = 200;
constexpr size_t kProbes = 500;

std::mt19937 random(std::random_device{}());

// A kept connection of a server that scrapes.
class Scraper {
  public:
    explicit Scraper(uint16_t port) : fd_(Connect(port)) {
        if (!fd_) throw std::runtime_error("cannot connect to an exporter");
    }
    void Ask(const std::string& path) {
        const std::string request =
            "GET " + path +
            " HTTP/1.1\r\nHost: x\r\nX-Prometheus-Scrape-Timeout-Seconds: 60\r\n\r\n";
        send(fd_.Get(), request.data(), request.size(), MSG_NOSIGNAL);
    }
    // Reads the reply to one probe, which must have succeeded.
    void Take() {
        std::string reply;
        char buffer[16384];
        while (!IsWhole(reply)) {
            const ssize_t got = recv(fd_.Get(), buffer, sizeof buffer, 0);
            if (got <= 0) throw std::runtime_error("an exporter hangs up");
            reply.append(buffer, static_cast<size_t>(got));
        }
        if (reply.find("\nprobe_success 1\n") == std::string::npos) {
            throw std::runtime_error("a probe failed:\n" + reply);
        }
    }
    void Probe(const std::string& path) {
        Ask(path);
        Take();
    }

  private:
    static bool IsWhole(const std::string& reply) {
        const size_t body = reply.find("\r\n\r\n");
        if (body == std::string::npos) return false;
        const size_t length = reply.find("Content-Length: ");
        if (length > body) return reply.ends_with("\r\n0\r\n\r\n");
        return reply.size() - body - 4 >= std::stoul(reply.substr(length + 16));
    }

    UniqueFd fd_;
};

// The listeners are in this process, and nobody accepts.
struct Hanging {
    uint16_t port = FreePort();
    std::vector<UniqueFd> listeners;

    Hanging() {
        for (int i = 0; i < kHanging; ++i) {
            UniqueFd fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
            sockaddr_in address = {};
            address.sin_family = AF_INET;
            address.sin_addr.s_addr = htonl(INADDR_LOOPBACK + 0x10000 + static_cast<uint32_t>(i));
            address.sin_port = htons(port);
            if (bind(fd.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
                listen(fd.Get(), 16) != 0) {
                throw std::runtime_error("no hosts that hang");
            }
            listeners.push_back(std::move(fd));
        }
    }
    static std::string Address(int host) { return "127.1.0." + std::to_string(host + 1); }
};

Server Begin(const std::string& name, uint16_t port, const std::vector<std::string>& arguments) {
    Server server{name, port, Start(arguments), "GET /-/healthy HTTP/1.0\r\n\r\n", 20};
    AwaitReply(server);
    return server;
}

using Ports = std::vector<uint16_t>;

// Asks many hosts, which are a few agents under many names, each with a password file of its own.
Server StartExporter(const Folder& folder, const std::string& name, const Ports& agents,
                     const Hanging& hanging) {
    const std::string passwords = folder / (name + "-passwords");
    std::filesystem::create_directory(passwords);
    std::ofstream list(folder / (name + ".list"));
    for (int i = 0; i < kHosts; ++i) {
        const std::string file = passwords + "/" + std::to_string(i);
        std::ofstream(file) << kPassword << "\n";
        list << "host" << i << ":" << agents[static_cast<size_t>(i) % agents.size()]
             << " addr=127.0.0.1 password=" << file << "\n";
    }
    for (int i = 0; i < kHanging; ++i) {
        list << "hang" << i << ":" << hanging.port << " addr=" << Hanging::Address(i)
             << " password=" << passwords << "/0\n";
    }
    list.close();
    std::ofstream(folder / (name + ".yml"))
        << "hosts: " << name << ".list\ndefaults: {timeout: 60s}\nmodules:\n"
        << "  one: {checks: [{name: root, type: disk, path: /}]}\n"
        << "  four: {checks: [{name: agent, type: info}, {name: root, type: disk, path: /},\n"
        << "    {name: tmp, type: disk, path: /tmp}, {name: list, type: file, path: "
        << (folder / (name + ".list")) << "}]}\n";
    const uint16_t port = FreePort();
    return Begin(name, port,
                 {ZOT_BUILD_DIR "/zot-exporter", "--config.file=" + (folder / (name + ".yml")),
                  "--web.listen-address=127.0.0.1:" + std::to_string(port)});
}

Server StartBlackbox(const Folder& folder) {
    std::ofstream(folder / "blackbox.yml") << "modules: {tcp: {prober: tcp, timeout: 5s}}\n";
    const uint16_t port = FreePort();
    return Begin("blackbox", port,
                 {kBlackbox, "--config.file=" + (folder / "blackbox.yml"),
                  "--web.listen-address=127.0.0.1:" + std::to_string(port)});
}

std::string Host(size_t number) { return "host" + std::to_string(number % kHosts); }

// A kind of probe, and what it costs its exporter.
struct Kind {
    const Server& server;
    std::string module;
    Ports agents;  // empty where hosts have names
    std::vector<double> costs{};

    std::string Path(size_t number) const {
        return "/probe?module=" + module + "&target=" +
               (agents.empty() ? Host(number)
                               : "127.0.0.1:" + std::to_string(agents[number % agents.size()]));
    }
};

// The processor time of a probe in milliseconds, with so many at once.
double CostOf(const Kind& kind, size_t atOnce) {
    std::vector<Scraper> scrapers;
    for (size_t i = 0; i < atOnce; ++i) scrapers.emplace_back(kind.server.port);
    for (size_t i = 0; i < atOnce; ++i) scrapers[i].Probe(kind.Path(i));
    const double before = kind.server.CpuSeconds();
    for (size_t done = 0; done < kProbes; done += atOnce) {
        for (size_t i = 0; i < atOnce; ++i) scrapers[i].Ask(kind.Path(done + i));
        for (Scraper& scraper : scrapers) scraper.Take();
    }
    const size_t probes = (kProbes + atOnce - 1) / atOnce * atOnce;
    return (kind.server.CpuSeconds() - before) * 1e3 / static_cast<double>(probes);
}

void MeasureProbes(const Server& ours, const Server& blackbox, const Ports& agents, size_t atOnce,
                   int rounds) {
    std::array<Kind, 3> kinds = {
        {{ours, "one", {}}, {ours, "four", {}}, {blackbox, "tcp", agents}}};
    for (int round = 0; round < rounds; ++round) {
        std::array<size_t, 3> order = {0, 1, 2};
        std::shuffle(order.begin(), order.end(), random);
        for (const size_t kind : order) kinds[kind].costs.push_back(CostOf(kinds[kind], atOnce));
    }
    std::printf(
        "\n%zu probe%s at a time; milliseconds of processor each: one request %.3f, four "
        "%.3f, blackbox %.3f\n",
        atOnce, atOnce == 1 ? "" : "s", Median(kinds[0].costs), Median(kinds[1].costs),
        Median(kinds[2].costs));
    Print("processor time, one request / blackbox", RatioOf(kinds[0].costs, kinds[2].costs), 0.6);
    Print("processor time, four requests / blackbox", RatioOf(kinds[1].costs, kinds[2].costs), 1);
}

void MeasureMemory(const Server& ours, const Server& blackbox) {
    const auto mebibytes = [](const Server& server) {
        return static_cast<double>(server.PssKib()) / 1024;
    };
    std::printf("\nmemory after that: %.1f MiB with %d hosts, blackbox %.1f MiB\n", mebibytes(ours),
                kHosts, mebibytes(blackbox));
    Print("memory / blackbox", mebibytes(ours) / mebibytes(blackbox), 0.6);
}

// Hosts at the rate of a fleet that is asked once a minute.
void MeasureFleet(const Server& ours) {
    constexpr size_t kSeconds = 12, kConnections = 1000;
    constexpr size_t kScrapes = kHosts * kSeconds / 60;
    std::vector<Scraper> scrapers;
    for (size_t i = 0; i < kConnections; ++i) scrapers.emplace_back(ours.port);
    const double before = ours.CpuSeconds();
    const auto start = Clock::now();
    for (size_t i = 0; i < kScrapes; ++i) {
        std::this_thread::sleep_until(start + i * std::chrono::microseconds(60000000 / kHosts));
        scrapers[i % kConnections].Probe("/probe?module=one&target=" + Host(i * 7));
    }
    const std::chrono::duration<double> took = Clock::now() - start;
    std::printf("\n%d hosts a minute, over %zu kept connections\n", kHosts, kConnections);
    Print("of a processor", (ours.CpuSeconds() - before) / took.count(), 0.25);
    Print("seconds for what has to take 12", took.count(), 12.1);
}

// Median milliseconds of a probe.
double Latency(const Server& server) {
    Scraper scraper(server.port);
    std::vector<double> times;
    for (size_t i = 0; i < 200; ++i) {
        const auto start = Clock::now();
        scraper.Probe("/probe?module=one&target=" + Host(i));
        times.push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
    }
    return Median(std::move(times));
}

void CompareLatency(const Server& crowded, const Server& alone, int rounds) {
    std::vector<double> ours, theirs;
    for (int round = 0; round < rounds; ++round) {
        const bool crowdedFirst = random() % 2 == 0;
        if (crowdedFirst) ours.push_back(Latency(crowded));
        theirs.push_back(Latency(alone));
        if (!crowdedFirst) ours.push_back(Latency(crowded));
    }
    Print("latency / alone", RatioOf(ours, theirs), 1.2);
}

void MeasureIdle(const Server& crowded, const Server& alone, int rounds) {
    std::vector<Scraper> idle;
    for (size_t i = 0; i < 1000; ++i) {
        idle.emplace_back(crowded.port);
        idle.back().Probe("/probe?module=one&target=" + Host(i));
    }
    std::printf("\n1000 idle connections, kept after a probe\n");
    CompareLatency(crowded, alone, rounds);
}

void MeasureHanging(const Server& crowded, const Server& alone, int rounds) {
    std::vector<Scraper> waiting;
    for (int i = 0; i < kHanging; ++i) {
        waiting.emplace_back(crowded.port);
        waiting.back().Ask("/probe?module=one&target=hang" + std::to_string(i));
    }
    std::printf("\n%d hosts that hang are being asked\n", kHanging);
    CompareLatency(crowded, alone, rounds);
}

void Run(int rounds) {
    if (!std::filesystem::exists(kBlackbox)) {
        throw std::runtime_error("please install prometheus-blackbox-exporter");
    }
    Folder folder;
    Running running;
    Hanging hanging;
    auto& servers = running.servers;
    Ports agents;
    for (int i = 0; i < kAgents; ++i) {
        servers.push_back(StartAgent(folder, {"agent" + std::to_string(i)}));
        agents.push_back(servers.back().port);
    }
    servers.push_back(StartExporter(folder, "crowded", agents, hanging));
    servers.push_back(StartExporter(folder, "alone", agents, hanging));
    servers.push_back(StartBlackbox(folder));
    const Server &crowded = servers[kAgents], &alone = servers[kAgents + 1],
                 &blackbox = servers[kAgents + 2];
    for (const size_t atOnce : {size_t{1}, size_t{16}})
        MeasureProbes(crowded, blackbox, agents, atOnce, rounds);
    MeasureMemory(crowded, blackbox);
    MeasureFleet(crowded);
    MeasureIdle(crowded, alone, rounds);
    MeasureHanging(crowded, alone, rounds);
}

}  // namespace
}  // namespace zot::bench

int main(int argc, char** argv) { return zot::bench::Main(argc, argv, 9, zot::bench::Run); }
