// What a check of the plugin works with, and what it finds out.
//
// A check asks the agent and fills a CheckResult: with a value, which the ranges judge afterwards,
// or with a status.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "client/agent_client.h"
#include "client/options.h"
#include "client/plugin.h"
#include "client/probe.h"

namespace zot::client {

struct CheckResult {
    std::string text;                    // for the status line
    std::string longText;                // the lines below it
    std::optional<PluginStatus> status;  // set: the ranges are not asked
    // The measured value under its name in the performance data. The data use `unit`; one of the
    // value's own units is `factor` of it.
    std::optional<double> value;
    std::optional<double> judged;  // judged by the ranges instead of it
    std::string_view label;
    std::string_view unit;
    double factor = 1;
    std::string_view limits;  // ";MIN;MAX" after the value's thresholds
    std::string otherData;    // further performance data

    void Fail(PluginStatus failure, std::string message) {
        status = failure;
        text = std::move(message);
    }
};

class CheckRun {
  public:
    CheckRun(const Invocation& call);

    // The words after the check's name.
    std::span<const std::string> Arguments() const { return arguments_; }
    const Options& GivenOptions() const { return call_.options; }
    const Environment& GivenEnvironment() const { return call_.environment; }
    // One moment for everything that the check does.
    const Deadline& TimeLimit() const { return deadline_; }

    // Asks the agent. True with a reply 200 of at least `lineCount` values; otherwise false with
    // the failure in `result`, and the code in `answer` if there was a reply at all. Parameters
    // that would not reach the agent unchanged count as failures.
    bool Ask(std::string_view command, std::span<const std::string> params, size_t lineCount,
             Answer& answer, CheckResult& result) const;
    // The same, and reads the value at this place of the reply as a number into `result`.
    bool AskForValue(std::string_view command, std::span<const std::string> params, size_t line,
                     Answer& answer, CheckResult& result) const;
    // Asks what the probe wants to know, and reads the first value of its answer as a number into
    // `result`. On failure returns false, with the failure in `result`.
    bool Follow(Probe& probe, CheckResult& result) const;
    // How long the last reply took.
    double Seconds() const { return seconds_; }
    // Of the process that asks.
    std::string OwnCommandLine() const { return call_.environment.commandLine; }

  private:
    bool Exchange(std::string_view command, std::span<const std::string> params, Answer& answer,
                  CheckResult& result) const;

    const Invocation& call_;
    std::span<const std::string> arguments_;
    Deadline deadline_;
    mutable double seconds_ = 0;
    mutable bool sameHost_ = false;
};

struct Check {
    std::string_view name;
    std::string_view arguments;
    size_t minArguments;
    size_t maxArguments;
    bool takesRanges;
    std::string_view defaultCritical;  // the range when none is given; may be empty
    void (*run)(const CheckRun& run, CheckResult& result);
    std::string_view help;
};

extern const std::span<const Check> kChecks;

// Reads a value line, which may be padded with blanks. On failure sets UNKNOWN in `result`.
bool ReadNumber(std::string_view line, double& value, CheckResult& result);

void CheckLog(const CheckRun& run, CheckResult& result);
void CheckScript(const CheckRun& run, CheckResult& result);

}  // namespace zot::client
