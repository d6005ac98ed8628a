// Benchmarks in pairs: the table at the end compares us with a peer measured in the same run.
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace zot {

// Speed of `ours` relative to `peer`, both names of benchmarks that do the same work in one
// iteration. With a goal of 0 the ratio is only shown.
struct Ratio {
    std::string label;
    std::string ours;
    std::string peer;
    double goal;
};

// Shows the median of each benchmark and keeps the times of its runs: processor time, or wall time
// if the benchmark says UseRealTime().
class RatioReporter : public benchmark::ConsoleReporter {
  public:
    void ReportRuns(const std::vector<Run>& runs) override {
        std::vector<Run> shown;
        for (const Run& run : runs) {
            bool measured = run.run_type == Run::RT_Iteration && !run.error_occurred;
            if (measured) {
                times_[run.run_name.function_name].push_back(run.run_name.time_type.empty()
                                                                 ? run.GetAdjustedCPUTime()
                                                                 : run.GetAdjustedRealTime());
            }
            if (run.error_occurred || run.repetitions == 1 || run.aggregate_name == "median") {
                shown.push_back(run);
            }
        }
        if (!shown.empty()) ConsoleReporter::ReportRuns(shown);
    }

    // Prints the ratios of median times. Returns false if one misses its goal or was not measured.
    bool PrintRatios(const std::vector<Ratio>& ratios) const {
        bool reached = true;
        printf("\n%-52s %8s %8s\n", "speed, ours / peer", "ratio", "goal");
        for (const Ratio& ratio : ratios) {
            double ours = Median(ratio.ours);
            double value = ours > 0 ? Median(ratio.peer) / ours : 0;
            bool ok = value >= ratio.goal && value > 0;
            reached = reached && ok;
            printf("%-52s %8.2f ", ratio.label.c_str(), value);
            ratio.goal > 0 ? printf("%8.2f%s\n", ratio.goal, ok ? "" : "  MISSED")
                           : printf("%8s\n", "-");
        }
        return reached;
    }

  private:
    double Median(const std::string& name) const {
        auto found = times_.find(name);
        if (found == times_.end()) return 0;
        std::vector<double> sorted = found->second;
        std::sort(sorted.begin(), sorted.end());
        return sorted[sorted.size() / 2];
    }

    std::map<std::string, std::vector<double>> times_;
};

// Runs the registered benchmarks and prints the ratios; main returns the result. Unless the command
// line says otherwise, each is repeated and the repetitions of all are shuffled, so that a busy
// moment of the machine does not affect only one side of a ratio.
inline int RunWithRatios(int argc, char** argv, const std::vector<Ratio>& ratios) {
    std::vector<std::string> texts = {argv[0], "--benchmark_repetitions=9",
                                      "--benchmark_min_time=0.05",
                                      "--benchmark_enable_random_interleaving=true"};
    texts.insert(texts.end(), argv + 1, argv + argc);
    std::vector<char*> arguments;
    for (std::string& text : texts) arguments.push_back(text.data());
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) return 2;
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    return reporter.PrintRatios(ratios) ? 0 : 1;
}

}  // namespace zot
