// One zotq asks 1,000 real agents, each a process on a loopback address of its own; beside it,
// xargs starts a zotq for each. Prints seconds, processor seconds and memory beside their goals;
// ends with 1 when a goal is missed.
//   fleet_bench [AGENTS]
#include <netinet/in.h>
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "base/owners.h"
#include "base/platform/system.h"

namespace zot {
namespace {

constexpr int kPort = 21055;
constexpr int kHanging = 100;
constexpr int kLimitSeconds = 3;
constexpr int kRuns = 5;

struct Cost {
    double seconds = 0, processor = 0, mebibytes = 0;
    int status = -1;
};

std::string Address(int network, int host) {
    return "127." + std::to_string(network) + "." + std::to_string(host / 250) + "." +
           std::to_string(host % 250 + 1);
}

pid_t Start(const std::string& command) {
    std::string copy = command;
    char shell[] = "/bin/sh", option[] = "-c";
    char* arguments[] = {shell, option, copy.data(), nullptr};
    pid_t child = 0;
    if (posix_spawn(&child, shell, nullptr, nullptr, arguments, ProcessEnvironment()) != 0) abort();
    return child;
}

// Runs a command to its end; the cost includes that of its children.
Cost Measure(const std::string& command) {
    auto begin = std::chrono::steady_clock::now();
    pid_t child = Start(command);
    int status = 0;
    rusage used = {};
    wait4(child, &status, 0, &used);
    auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    Cost cost;
    cost.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    cost.processor = seconds(used.ru_utime) + seconds(used.ru_stime);
    cost.mebibytes = static_cast<double>(used.ru_maxrss) / 1024;
    cost.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return cost;
}

// The best of several runs: others use the machine too.
Cost Best(const std::string& command, int runs) {
    Cost best = Measure(command);
    for (int i = 1; i < runs; ++i) {
        Cost cost = Measure(command);
        best.seconds = std::min(best.seconds, cost.seconds);
        best.processor = std::min(best.processor, cost.processor);
        best.mebibytes = std::max(best.mebibytes, cost.mebibytes);
        best.status = std::max(best.status, cost.status);
    }
    return best;
}

class Fleet {
  public:
    Fleet(std::string folder, int count) : folder_(std::move(folder)), count_(count) {
        std::ofstream(folder_ + "/pw") << "password\n";
        std::filesystem::permissions(folder_ + "/pw", std::filesystem::perms(0600));
        for (int i = 0; i < count_; ++i) StartAgent(i);
    }
    ~Fleet() {
        std::vector<int> agents;
        for (int i = 0; i < count_; ++i) {
            int pid = 0;
            std::ifstream(Path(i, "pid")) >> pid;
            if (pid > 0 && kill(pid, SIGTERM) == 0) agents.push_back(pid);
        }
        // Each takes its file away before the folder goes.
        for (int agent : agents) {
            while (kill(agent, 0) == 0) usleep(10000);
        }
    }

    // A list whose first hosts accept connections and say nothing.
    std::string List(int hanging) const {
        std::string path = folder_ + "/list" + std::to_string(hanging);
        std::ofstream list(path);
        for (int i = 0; i < count_; ++i) {
            list << "host" << i << ":" << kPort << " addr=" << Address(i < hanging ? 2 : 1, i)
                 << " password=" << folder_ << "/pw\n";
        }
        return path;
    }
    std::string Addresses() const {
        std::string path = folder_ + "/addresses";
        std::ofstream list(path);
        for (int i = 0; i < count_; ++i) list << Address(1, i) << "\n";
        return path;
    }

  private:
    std::string Path(int agent, const char* kind) const {
        return folder_ + "/" + std::to_string(agent) + "." + kind;
    }
    void StartAgent(int i) {
        std::ofstream(Path(i, "cfg"))
            << "host=" << Address(1, i) << "\nport=" << kPort
            << "\npassword=password\nfilteractive=0\nzotpath=" ZOT_BUILD_DIR "/zot\npidfile="
            << Path(i, "pid") << "\ntmpdir=" << folder_ << "\n";
        if (Measure("exec " ZOT_BUILD_DIR "/zot -d " + Path(i, "cfg") + " >/dev/null").status !=
            0) {
            fprintf(stderr, "agent %d does not start\n", i);
            exit(2);
        }
    }

    std::string folder_;
    int count_;
};

UniqueFd SilentListener(int host) {
    UniqueFd fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr =
        htonl((127U << 24) | (2U << 16) | static_cast<uint32_t>(host / 250) << 8 |
              static_cast<uint32_t>(host % 250 + 1));
    address.sin_port = htons(kPort);
    if (bind(fd.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) abort();
    if (listen(fd.Get(), 8) != 0) abort();
    return fd;
}

bool Show(const char* what, double value, double goal, const char* unit, bool most = true) {
    bool met = most ? value <= goal : value >= goal;
    printf("%-44s %8.3f %-4s goal %s %.3g  %s\n", what, value, unit, most ? "<=" : ">=", goal,
           met ? "met" : "MISSED");
    return met;
}

int Run(const std::string& folder, int count) {
    const std::string zotq = "exec " ZOT_BUILD_DIR "/zotq ";
    Fleet fleet(folder, count);
    Cost one = Best(zotq + "--hosts " + fleet.List(0) + " -o ndjson status >/dev/null", kRuns);
    Cost peer =
        Measure("exec xargs -P64 -I{} " ZOT_BUILD_DIR "/zotq -P " + folder + "/pw -p " +
                std::to_string(kPort) + " -H {} GetInfo <" + fleet.Addresses() + " >/dev/null");
    std::vector<UniqueFd> silent;
    for (int i = 0; i < kHanging; ++i) silent.push_back(SilentListener(i));
    Cost hang = Best(zotq + "-t " + std::to_string(kLimitSeconds) + " --hosts " +
                         fleet.List(kHanging) + " -o ndjson status >/dev/null 2>&1",
                     2);
    printf("%d agents; xargs -P64: %.2f s, %.2f processor seconds\n", count, peer.seconds,
           peer.processor);
    bool met = one.status == 0 && hang.status == 3;
    if (!met) printf("unexpected exit status: %d, %d\n", one.status, hang.status);
    met = Show("all answer: seconds", one.seconds, 1, "s") && met;
    met = Show("all answer: processor seconds", one.processor, 0.2, "s") && met;
    met = Show("all answer: memory", one.mebibytes, 20, "MiB") && met;
    met = Show("100 hang: seconds", hang.seconds, kLimitSeconds + 1, "s") && met;
    met = Show("processor seconds of xargs / of one zotq", peer.processor / one.processor, 10, "",
               false) &&
          met;
    return met ? 0 : 1;
}

}  // namespace
}  // namespace zot

int main(int argc, char** argv) {
    std::string folder = "/tmp/zot-fleet-XXXXXX";
    if (mkdtemp(folder.data()) == nullptr) return 2;
    int status = zot::Run(folder, argc > 1 ? atoi(argv[1]) : 1000);
    std::filesystem::remove_all(folder);
    return status;
}
