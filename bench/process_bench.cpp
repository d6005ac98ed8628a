// What TEST-ExternalPrg costs beside the least a program can do: posix_spawn and waitpid. Both run
// /bin/true. The two take turns, and the figures are medians (of single runs and of rounds), so
// that other work on the machine hardly counts. Still, measure on an idle machine: the agent's
// child leads its own session, for which Linux makes a scheduling group, and with more work than
// processors a fresh group waits longer for its first turn.
#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "base/platform/system.h"
#include "checks/scripts/script_checks.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kRounds = 40;
constexpr int kRunsPerRound = 50;
constexpr double kToReach = 0.7;

void RunPlain() {
    const char* arguments[] = {"/bin/true", nullptr};
    pid_t pid = 0;
    int status = -1;
    if (posix_spawn(&pid, arguments[0], nullptr, nullptr, const_cast<char**>(arguments),
                    zot::ProcessEnvironment()) != 0 ||
        waitpid(pid, &status, 0) != pid || status != 0) {
        std::abort();
    }
}

void RunTest(const zot::AgentSettings& settings) {
    zot::Reply reply;
    zot::TestExternalPrg("/bin/true\n\n\n10000\n\r", settings, reply);
    if (reply.Text() != "200\n0\n") std::abort();
}

double Median(std::vector<double>& values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

double MicrosSince(Clock::time_point start) {
    return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

struct Timings {
    std::vector<double> micros;     // of each run
    std::vector<double> perSecond;  // of each round

    template <typename Run>
    void Measure(Run run) {
        auto roundStart = Clock::now();
        for (int i = 0; i < kRunsPerRound; ++i) {
            auto start = Clock::now();
            run();
            micros.push_back(MicrosSince(start));
        }
        perSecond.push_back(kRunsPerRound * 1e6 / MicrosSince(roundStart));
    }
};

void PrintRatio(const char* what, double test, double plain, double ratio) {
    std::printf("  %s: TEST-ExternalPrg %.0f, posix_spawn %.0f, ratio %.2f (to reach: %.2f)\n",
                what, test, plain, ratio, kToReach);
}

void Compare(const char* title, const zot::AgentSettings& settings) {
    Timings plain;
    Timings test;
    for (int round = 0; round < kRounds; ++round) {
        plain.Measure(RunPlain);
        test.Measure([&settings] { RunTest(settings); });
    }
    std::printf("%s\n", title);
    double testRate = Median(test.perSecond);
    double plainRate = Median(plain.perSecond);
    PrintRatio("runs per second", testRate, plainRate, testRate / plainRate);
    double testMicros = Median(test.micros);
    double plainMicros = Median(plain.micros);
    PrintRatio("median latency in microseconds", testMicros, plainMicros, plainMicros / testMicros);
}

}  // namespace

int main() {
    zot::AgentSettings settings;
    settings.tmpDir = "/tmp";
    Compare("/bin/true from a small process", settings);
    // A busy agent's memory must not make it more expensive to start a child.
    std::vector<char> ballast(size_t{256} << 20, 'x');
    Compare("/bin/true with 256 MiB in use", settings);
    return ballast.back() == 'x' ? 0 : 1;
}
