#include <ostream>
#include <string>

#include "client/host_choice.h"
#include "client/module_file.h"
#include "client/rollout.h"
#include "client/subcommands.h"
#include "client/upgrade_host.h"
#include "client/upgrade_transfer.h"

namespace zot::client {
namespace {

// A bar that overwrites itself.
class ProgressBar {
  public:
    ProgressBar(const Console& console, size_t size) : console_(console), size_(size) {}
    void operator()(size_t sent) {
        constexpr size_t kWidth = 50;
        size_t percent = sent * 100 / size_;
        if (!console_.progress || percent == shown_) return;
        shown_ = percent;
        std::string bar(percent * kWidth / 100, '#');
        bar.resize(kWidth, ' ');
        console_.err << "\r[" << bar << "] " << percent << '%';
        if (sent == size_) console_.err << '\n';
        console_.err.flush();
    }

  private:
    const Console& console_;
    size_t size_;
    size_t shown_ = 101;
};

// Options that only make sense for a roll-out make it one, even with a single host.
bool IsRollout(const Options& options, const Choice& choice) {
    return choice.many || options.dryRun || options.check || !options.canary.empty() ||
           !options.batches.empty() || !options.rolloutList.empty();
}

int UpgradeSingle(Invocation& call, const ChosenHost& host, const std::string& module) {
    const Console& console = call.console;
    UpgradeOrders orders = {.module = module, .force = call.options.force};
    if (call.options.timeoutGiven) orders.patience = call.options.target.timeout;
    UpgradeResult result = UpgradeHost(host.target, orders, ProgressBar(console, module.size()));
    switch (result.kind) {
        case UpgradeResult::Kind::kUnfit:
            return Fail(console, result.message + " (--force sends it anyway)", kWrongUsage);
        case UpgradeResult::Kind::kFailed:
            return Fail(console, result.message, kNoReply);
        case UpgradeResult::Kind::kRefused:
            if (result.answer.code == "302") {
                Note(console,
                     "another transfer is under way, or one was broken off and the agent must be "
                     "restarted (zotq ReloadApp)");
            }
            return FinishWithReply(call, result.answer);
        case UpgradeResult::Kind::kDone:
            break;
    }
    result.answer.lines = {"AgentVersion=" + result.version};
    return FinishWithReply(call, result.answer);
}

}  // namespace

int UpgradeAgent(Invocation& call) {
    const std::string& path = call.options.words[1];
    std::string module, error;
    if (!ReadModule(path, module, error)) return Fail(call.console, error, kWrongUsage);
    std::string fault = call.options.force ? "" : ModuleFault(module);
    if (!fault.empty()) {
        return Fail(call.console, path + " is " + fault + " (--force sends it anyway)",
                    kWrongUsage);
    }
    Choice choice;
    if (!ChooseHosts(call, choice, error)) return Fail(call.console, error, kWrongUsage);
    if (IsRollout(call.options, choice)) return RollOut(call, choice, module);
    return UpgradeSingle(call, choice.hosts[0], module);
}

}  // namespace zot::client
