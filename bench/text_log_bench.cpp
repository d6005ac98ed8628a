// Text-log scans beside grep, ripgrep and mawk, and beside a plain scan, on a generated log of 512
// MiB in the page cache. All times are wall time: the peers run as processes of their own.
#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "base/mapped_bytes.h"
#include "base/owners.h"
#include "base/platform/system.h"
#include "checks/logs/log_scanner.h"
#include "fuzz/plain_log_scan.h"
#include "ratio.h"

namespace zot {
namespace {

constexpr size_t kLogSize = size_t{512} << 20;

// Lines as servers write them: of 60 to 140 bytes, "request" in all of them, "error" in one of
// 2000, half of these with "timeout", and "Disaster" in two of all.
std::string MakeLines(size_t size, std::mt19937& random) {
    static constexpr const char* kWords[] = {"user",  "session", "opened",   "cache",  "GET",
                                             "index", "status",  "upstream", "worker", "closed"};
    auto pick = [&](unsigned count) { return static_cast<unsigned>(random() % count); };
    std::string lines;
    for (int second = 0; lines.size() < size; ++second) {
        char head[64];
        std::snprintf(head, sizeof head, "%05d host%02u app[%u]: request %u ", second % 86400,
                      pick(20), pick(30000), pick(1000));
        lines += head;
        for (unsigned words = 4 + pick(10); words > 0; --words) {
            lines.append(kWords[pick(10)]).append(" ");
        }
        if (pick(2000) == 0) lines += pick(2) ? "error timeout" : "error refused";
        lines += "\n";
    }
    return lines;
}

class Log {
  public:
    Log() {
        const char* folder = std::getenv("TMPDIR");
        path_ = std::string(folder ? folder : "/tmp") + "/zot-log-XXXXXX";
        int file = mkstemp(path_.data());
        std::mt19937 random(7);
        std::string disaster = "00000 host00 app[1]: request 1 Disaster strikes\n";
        Append(file, disaster);
        std::string lines = MakeLines(16 << 20, random);
        for (size_t size = 0; size < kLogSize; size += lines.size()) Append(file, lines);
        Append(file, disaster);
        close(file);
    }
    Log(const Log&) = delete;
    Log& operator=(const Log&) = delete;
    ~Log() { unlink(path_.c_str()); }

    const std::string& Path() const { return path_; }

  private:
    static void Append(int file, const std::string& text) {
        if (write(file, text.data(), text.size()) != static_cast<ssize_t>(text.size())) abort();
    }

    std::string path_;
};

const Log& TheLog() {
    static const Log log;
    return log;
}

void SetBytes(benchmark::State& state) {
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(kLogSize));
}

void Ours(benchmark::State& state, const LogCriterion& criterion, const LogScanTuning& tuning) {
    const std::string& path = TheLog().Path();
    for (auto _ : state) {
        VyString errorText;
        LineMatchers matchers;
        matchers.push_back(MakeLineMatcher(criterion, errorText));
        if (ScanTextLog(path, matchers, true, {0, 1, 0}, tuning).result <= 0) abort();
    }
    SetBytes(state);
}

// Each line is read and tested alone.
void Plain(benchmark::State& state, const LogCriterion& criterion) {
    for (auto _ : state) {
        std::ifstream log(TheLog().Path());
        int64_t found = 0;
        for (std::string line; std::getline(log, line);) {
            found += fuzz::PlainMatch(line, criterion) != 0 ? 1 : 0;
        }
        if (found == 0) abort();
    }
    SetBytes(state);
}

// The peer's answer goes into a pipe: grep stops at its first match when it writes to /dev/null.
void Peer(benchmark::State& state, std::vector<const char*> arguments) {
    arguments.push_back(TheLog().Path().c_str());
    arguments.push_back(nullptr);
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) abort();
    UniqueFd reader(ends[0]);
    UniqueFd writer(ends[1]);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, writer.Get(), 1);
    setenv("LC_ALL", "C", 1);
    for (auto _ : state) {
        pid_t child = 0;
        int status = 0;
        char answer[64];
        if (posix_spawnp(&child, arguments[0], &actions, nullptr,
                         const_cast<char**>(arguments.data()), ProcessEnvironment()) != 0 ||
            waitpid(child, &status, 0) != child || status != 0 ||
            read(reader.Get(), answer, sizeof answer) <= 0) {
            state.SkipWithError("cannot run the peer");
            break;
        }
    }
    posix_spawn_file_actions_destroy(&actions);
    SetBytes(state);
}

struct Case {
    const char* name;
    LogCriterion criterion;
    std::vector<const char*> peer;
};

constexpr auto kText = LogCriterion::Kind::kText;

const Case kCases[] = {
    {"rare", {"Disaster", kText, true, false}, {"grep", "-c", "-F", "Disaster"}},
    {"rare, ripgrep", {"Disaster", kText, true, false}, {"rg", "-c", "Disaster"}},
    {"rare, any case", {"DISASTER", kText, false, false}, {"grep", "-c", "-i", "-F", "DISASTER"}},
    {"rare, word", {"Disaster", kText, true, true}, {"grep", "-c", "-w", "-F", "Disaster"}},
    {"some", {"error", kText, true, false}, {"grep", "-c", "-F", "error"}},
    {"all", {"request", kText, true, false}, {"grep", "-c", "-F", "request"}},
    {"all, any case", {"Request", kText, false, false}, {"grep", "-c", "-i", "-F", "Request"}},
    {"all, word", {"request", kText, true, true}, {"grep", "-c", "-w", "-F", "request"}},
    {"search",
     {"'error' and not 'timeout'", LogCriterion::Kind::kSearch, true, false},
     {"mawk", "/error/ && !/timeout/ { n++ } END { print n }"}},
    {"condition, rare",
     {"'%data%' getnumber 1 > 86398", LogCriterion::Kind::kCondition, true, false},
     {"mawk", "-F", "[^0-9]+", "$1 > 86398 { n++ } END { print n }"}},
    {"condition",
     {"'%data%' getnumber 3 > 500", LogCriterion::Kind::kCondition, true, false},
     {"mawk", "-F", "[^0-9]+", "$3 > 500 { n++ } END { print n }"}},
    {"condition, word",
     {"'%data%' getword 3 == 'Disaster' or '%data%' getword 6 == 'Disaster'",
      LogCriterion::Kind::kCondition, true, false},
     {"mawk", "$3 == \"Disaster\" || $6 == \"Disaster\" { n++ } END { print n }"}},
};

}  // namespace
}  // namespace zot

int main(int argc, char** argv) {
    zot::GuardMappedBytes();
    std::vector<zot::Ratio> ratios;
    for (const zot::Case& c : zot::kCases) {
        std::string name = c.name;
        benchmark::RegisterBenchmark(name.c_str(), zot::Ours, c.criterion, zot::LogScanTuning{})
            ->UseRealTime();
        std::string peer = std::string(c.peer[0]) + " " + name;
        benchmark::RegisterBenchmark(peer.c_str(), zot::Peer, c.peer)->UseRealTime();
        std::string plain = "plain " + name;
        benchmark::RegisterBenchmark(plain.c_str(), zot::Plain, c.criterion)->UseRealTime();
        ratios.push_back({name + " / " + c.peer[0], name, peer, 1.0});
        ratios.push_back({name + " / plain", name, plain, 0});
    }
    zot::LogScanTuning onlyRead;
    onlyRead.mapFrom = INT64_MAX;
    benchmark::RegisterBenchmark("read rare", zot::Ours, zot::kCases[0].criterion, onlyRead)
        ->UseRealTime();
    ratios.push_back({"rare / only read", "rare", "read rare", 0});
    return zot::RunWithRatios(argc, argv, ratios);
}
