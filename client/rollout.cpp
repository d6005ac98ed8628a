#include "client/rollout.h"

#include <signal.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <ostream>
#include <set>
#include <thread>
#include <vector>

#include "client/host_names.h"
#include "client/host_run.h"
#include "client/inventory.h"
#include "client/module_file.h"
#include "client/progress_line.h"
#include "client/report_values.h"
#include "client/rollout_list.h"
#include "client/rollout_plan.h"
#include "client/text.h"
#include "client/upgrade_host.h"

namespace zot::client {
namespace {

constexpr size_t kTransfersAtOnce = 16;
constexpr const char* kDefaultBatches = "1,5,20%";

using Hosts = std::vector<const ChosenHost*>;

std::atomic<bool> interrupted{false};

// An interrupted transfer leaves an agent that refuses others until it is restarted, so transfers
// already running are completed, also when the terminal goes away; a second signal ends at once.
class PatientInterrupt {
  public:
    PatientInterrupt() {
        struct sigaction action {};
        action.sa_handler = [](int) { interrupted = true; };
        action.sa_flags = static_cast<int>(SA_RESETHAND);
        for (size_t i = 0; i < kSignals.size(); ++i) sigaction(kSignals[i], &action, &before_[i]);
    }
    ~PatientInterrupt() {
        for (size_t i = 0; i < kSignals.size(); ++i) sigaction(kSignals[i], &before_[i], nullptr);
    }
    PatientInterrupt(const PatientInterrupt&) = delete;
    PatientInterrupt& operator=(const PatientInterrupt&) = delete;

  private:
    static constexpr std::array kSignals = {SIGINT, SIGTERM, SIGHUP};

    struct sigaction before_[kSignals.size()] = {};
};

class Rollout {
  public:
    Rollout(Invocation& call, const Choice& choice, const std::string& module)
        : call_(call),
          options_(call.options),
          out_(call.console.out),
          choice_(choice),
          module_(module),
          digest_(ModuleDigest(module)) {}

    int Run();

  private:
    std::vector<HostReport> AskInfoOf(const Hosts& hosts) const;
    bool SkipUpgraded();
    bool SplitCanary(std::string& error);
    void CheckBefore();
    void CheckAfter();
    void RunBatch(const std::string& name, const Hosts& hosts);
    bool MayGoOn();
    void Upgrade(const ChosenHost& host, ProgressLine& progress);
    void Pause();
    bool Stopped() const {
        return failed_.size() >= options_.maxFailures || interrupted || broken_;
    }
    int Status() const { return lost_ || broken_ ? kNoReply : refused_ ? kReplyOther : kReplyOk; }
    int Finish();

    Invocation& call_;
    const Options& options_;
    std::ostream& out_;
    const Choice& choice_;
    const std::string& module_;
    std::string digest_;
    RolloutList list_;
    Hosts all_, canary_, rest_;
    std::vector<size_t> batches_;

    std::mutex resultMutex_;
    std::vector<const ChosenHost*> upgraded_;
    std::vector<std::pair<const ChosenHost*, std::string>> failed_;
    std::string lastVersion_, lastSeconds_;
    bool refused_ = false, lost_ = false;  // what kind of failures there were
    std::atomic<bool> broken_{false};      // the list cannot be written
};

std::vector<HostReport> Rollout::AskInfoOf(const Hosts& hosts) const {
    static const std::vector<Question> kQuestions = {{"GetInfo", {}}};
    Choice some;
    some.many = true;
    for (const ChosenHost* host : hosts) some.hosts.push_back(*host);
    auto reports = AskHosts(
        call_, some,
        [](const ChosenHost& host) { return std::make_unique<QuestionList>(host, kQuestions); },
        {});
    // One report for each host, in their order.
    for (size_t i = 0; i < reports.size(); ++i) reports[i].host = hosts[i];
    return reports;
}

// Judged by the list and by an answer now, never by the version, which may say nothing.
bool Rollout::SkipUpgraded() {
    Hosts recorded;
    for (const ChosenHost& host : choice_.hosts) {
        if (list_.HasUpgraded(host.host.name, digest_)) recorded.push_back(&host);
    }
    std::set<const ChosenHost*> done;
    if (!recorded.empty()) {
        for (const HostReport& report : AskInfoOf(recorded)) {
            if (IsReply(report.failure)) done.insert(report.host);
        }
        out_ << "already upgraded with this file: " << done.size() << " by " << list_.Path()
             << '\n';
    }
    for (const ChosenHost& host : choice_.hosts) {
        if (done.count(&host) == 0) all_.push_back(&host);
    }
    return !all_.empty();
}

bool Rollout::SplitCanary(std::string& error) {
    std::vector<std::string> names;
    if (!ExpandNames(options_.canary, names, error)) return false;
    for (const std::string& name : names) {
        bool known = std::any_of(choice_.hosts.begin(), choice_.hosts.end(),
                                 [&](const ChosenHost& host) { return host.host.name == name; });
        if (known) continue;
        error = "the canary is not among the hosts: " + name;
        return false;
    }
    for (const ChosenHost* host : all_) {
        bool first = std::find(names.begin(), names.end(), host->host.name) != names.end();
        (first ? canary_ : rest_).push_back(host);
    }
    return true;
}

// Hosts that do not answer, or cannot run the file, fail before anything is sent to any host.
void Rollout::CheckBefore() {
    for (const HostReport& report : AskInfoOf(all_)) {
        std::string fault = report.message;
        if (fault.empty() && !options_.force) {
            fault = ModuleMisfit(module_, Text(report.records[0], "running_os"));
        }
        if (fault.empty()) continue;
        failed_.emplace_back(report.host, fault);
        (IsReply(report.failure) ? refused_ : lost_) = true;
        out_ << "check    " << report.host->host.name << ": " << Visible(fault) << '\n';
    }
    auto unfit = [this](const ChosenHost* host) {
        return std::any_of(failed_.begin(), failed_.end(),
                           [host](const auto& entry) { return entry.first == host; });
    };
    std::erase_if(canary_, unfit);
    std::erase_if(rest_, unfit);
}

void Rollout::CheckAfter() {
    if (upgraded_.empty()) return;
    size_t good = 0;
    for (const HostReport& report : AskInfoOf(upgraded_)) {
        if (IsReply(report.failure)) {
            ++good;
        } else {
            lost_ = true;
            out_ << "check    " << report.host->host.name << ": " << Visible(report.message)
                 << '\n';
        }
    }
    out_ << "check    " << good << '/' << upgraded_.size() << " answer\n";
}

void Rollout::Upgrade(const ChosenHost& host, ProgressLine& progress) {
    using Kind = UpgradeResult::Kind;
    UpgradeOrders orders = {.module = module_, .force = options_.force};
    if (options_.timeoutGiven) orders.patience = options_.target.timeout;
    UpgradeResult result;
    if (host.fault.empty()) {
        result = UpgradeHost(host.target, orders, [](size_t) {});
    } else {
        result.message = host.fault;
    }
    bool done = result.kind == Kind::kDone;
    std::string error;
    if (!list_.Record(host.host.name, done ? "upgraded" : "failed", digest_,
                      done ? result.version : result.message, error)) {
        broken_ = true;
    }
    std::lock_guard lock(resultMutex_);
    progress.Count(!done);
    if (!error.empty()) {
        progress.Clear();
        Note(call_.console, error);
    }
    if (done) {
        upgraded_.push_back(&host);
        lastVersion_ = Visible(result.version);
        lastSeconds_ = FormatDecimal(result.seconds, 1);
        return;
    }
    failed_.emplace_back(&host, result.message);
    (result.kind == Kind::kFailed ? lost_ : refused_) = true;
}

bool Rollout::MayGoOn() {
    std::lock_guard lock(resultMutex_);
    return !Stopped();
}

void Rollout::RunBatch(const std::string& name, const Hosts& hosts) {
    size_t before = upgraded_.size(), failedBefore = failed_.size();
    size_t working = std::min(hosts.size(), kTransfersAtOnce);
    std::atomic<size_t> next{0};
    std::condition_variable oneEnded;
    ProgressLine progress(call_.console, hosts.size());
    std::vector<std::thread> threads;
    for (size_t i = working; i > 0; --i) {
        threads.emplace_back([&] {
            for (size_t at = next++; at < hosts.size() && MayGoOn(); at = next++) {
                Upgrade(*hosts[at], progress);
            }
            std::lock_guard lock(resultMutex_);
            --working;
            oneEnded.notify_one();
        });
    }
    for (std::unique_lock lock(resultMutex_);
         !oneEnded.wait_for(lock, ProgressLine::kPeriod, [&] { return working == 0; });) {
        progress.Draw();
    }
    for (std::thread& thread : threads) thread.join();
    progress.Clear();
    std::string head = name;
    head.resize(std::max<size_t>(head.size() + 1, 9), ' ');
    size_t good = upgraded_.size() - before;
    out_ << head;
    if (hosts.size() == 1 && good == 1) {
        out_ << hosts[0]->host.name << "  " << lastVersion_ << " after " << lastSeconds_ << " s\n";
    } else {
        out_ << good << '/' << hosts.size() << (good > 0 ? "  " + lastVersion_ : "") << '\n';
    }
    for (size_t i = failedBefore; i < failed_.size(); ++i) {
        out_ << "         " << failed_[i].first->host.name << ": " << Visible(failed_[i].second)
             << '\n';
    }
    out_.flush();
}

void Rollout::Pause() {
    Deadline end{std::chrono::seconds(options_.pauseSeconds)};
    while (!end.Passed() && !interrupted) {
        std::this_thread::sleep_for(std::chrono::milliseconds(std::min(100, end.Remaining())));
    }
}

int Rollout::Finish() {
    size_t untouched = all_.size() - upgraded_.size() - failed_.size();
    if (failed_.size() >= options_.maxFailures && untouched > 0) {
        out_ << "stopped: " << Count(static_cast<double>(failed_.size()), "failure", "failures")
             << (failed_.size() == 1 ? " reaches" : " reach") << " --max-failures "
             << options_.maxFailures << '\n';
    } else if (interrupted) {
        out_ << "stopped by a signal\n";
    }
    if (options_.check) CheckAfter();
    std::vector<std::string> names;
    for (const auto& entry : failed_) names.push_back(entry.first->host.name);
    out_ << "upgraded " << upgraded_.size() << ", failed " << failed_.size();
    if (!names.empty()) out_ << " (" << FoldNames(names) << ')';
    out_ << ", untouched " << untouched << "; list in " << list_.Path() << '\n';
    int status = Status();
    if (status == kReplyOk && untouched > 0) status = kReplyOther;
    return client::Finish(call_.console, status);
}

int Rollout::Run() {
    std::string error;
    std::string path = options_.rolloutList.empty() ? "upgrade-" + digest_.substr(0, 12) + ".txt"
                                                    : options_.rolloutList;
    if (!list_.Open(path, error)) return Fail(call_.console, error, kWrongUsage);
    if (!SkipUpgraded()) {
        out_ << "nothing to do\n";
        return client::Finish(call_.console, kReplyOk);
    }
    std::string sizes = options_.batches.empty() ? kDefaultBatches : options_.batches;
    if (!SplitCanary(error) || !PlanBatches(sizes, rest_.size(), batches_, error)) {
        return Fail(call_.console, error, kWrongUsage);
    }
    std::vector<std::string> names;
    for (const ChosenHost* host : canary_) names.push_back(host->host.name);
    out_ << PlanText(FoldNames(names), batches_, all_.size()) << std::endl;
    if (options_.check) CheckBefore();
    if (options_.dryRun) return client::Finish(call_.console, Status());
    PatientInterrupt patient;
    if (!canary_.empty() && !Stopped()) RunBatch("canary", canary_);
    // The last batches shrink by what the check took out.
    for (size_t i = 0, at = 0; i < batches_.size() && at < rest_.size() && !Stopped(); ++i) {
        if (i > 0 || !canary_.empty()) Pause();
        if (Stopped()) break;
        size_t end = std::min(at + batches_[i], rest_.size());
        RunBatch("batch " + std::to_string(i + 1), {rest_.begin() + static_cast<ptrdiff_t>(at),
                                                    rest_.begin() + static_cast<ptrdiff_t>(end)});
        at = end;
    }
    return Finish();
}

}  // namespace

int RollOut(Invocation& call, const Choice& choice, const std::string& module) {
    return Rollout(call, choice, module).Run();
}

}  // namespace zot::client
