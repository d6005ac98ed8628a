// Servers to measure, each a process on its own port of the loopback interface, and a client that
// loads them.
#pragma once

#include <sys/types.h>

#include <chrono>
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

uint16_t FreePort();

// Starts the program with standard output and error thrown away.
pid_t Start(std::vector<std::string> arguments);

using Clock = std::chrono::steady_clock;

// Waits until the server answers. Returns how long that took since `start`, in seconds. This and
// the functions below throw when the server does not do what it should.
double AwaitReply(const Server& server, Clock::time_point start = Clock::now());

UniqueFd Connect(uint16_t port);

// Sends this many requests, with `inFlight` at a time. Returns requests per second.
double Load(const Server& server, int requests, int inFlight);

// The median time of this many requests, one after another, in microseconds.
double MedianLatency(const Server& server, int requests);

double Median(std::vector<double> values);

}  // namespace zot::bench
