// Servers to measure, each a process on its own port of the loopback interface, a client that loads
// them, and the table of results.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "base/owners.h"

namespace zot::bench {

struct Server {
    std::string name;
    uint16_t port = 0;
    pid_t pid = 0;
    std::string request;
    size_t replySize = 0;  // the least size of each answer; a smaller one is a failure

    double CpuSeconds() const;
    long PssKib() const;
    long Threads() const;
    // Ends and collects the process.
    void Stop();
};

// Whatever happens, no server is left running.
struct Running {
    ~Running() {
        for (Server& server : servers) server.Stop();
    }
    std::vector<Server> servers;
};

// A new folder, removed at the end. Everybody may write in it.
class Folder {
  public:
    Folder();
    ~Folder();
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    std::string operator/(const std::string& name) const { return path_ + ("/" + name); }

  private:
    char path_[32] = "/tmp/zot-bench-XXXXXX";
};

inline constexpr char kPassword[] = "password";
inline constexpr size_t kReplySize = 60;

// A question whose answer is 60 bytes long and costs the machine nothing.
std::string Request();
// A request of an agent's command, with its lines.
std::string RequestFor(const std::string& text);

struct AgentSetup {
    std::string name;  // of its files
    bool verbose = false;
    std::string before = {};  // shell words that run what follows them, such as "nice"
};

// Starts an agent as a daemon and waits until it answers.
Server StartAgent(const Folder& folder, const AgentSetup& setup);

uint16_t FreePort();

// Starts the program with standard output and error thrown away.
pid_t Start(std::vector<std::string> arguments);

using Clock = std::chrono::steady_clock;

// Waits until the server answers. Returns how long that took since `start`, in seconds. This and
// the functions below throw when the server does not do what it should.
double AwaitReply(const Server& server, Clock::time_point start = Clock::now());

// `from` is the last byte of the client's address, 127.0.0.x. No descriptor on failure.
UniqueFd Connect(uint16_t port, uint8_t from = 1);

// Connects and sends the request; no descriptor on failure.
UniqueFd Send(const Server& server, const std::string& request);

// The bytes that come until the server closes.
size_t Receive(int descriptor);

// Sends this many requests, with `inFlight` at a time. Returns requests per second.
double Load(const Server& server, int requests, int inFlight);

// The median time of this many requests, one after another, in microseconds.
double MedianLatency(const Server& server, int requests);

double Median(std::vector<double> values);

// The median of the ratios of what was measured in the same round.
double RatioOf(const std::vector<double>& ours, const std::vector<double>& peers);

// Prints a line of the table; a goal of 0 is no goal.
void Print(const char* label, double value, double goal, bool smallerIsBetter = true);

// Runs a benchmark with the rounds of the command line, or so many. Returns the exit code: 1 when a
// goal was missed.
int Main(int argc, char** argv, int rounds, void (*run)(int rounds));

}  // namespace zot::bench
