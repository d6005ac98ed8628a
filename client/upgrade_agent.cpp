#include <algorithm>
#include <chrono>
#include <ostream>
#include <string>
#include <string_view>
#include <thread>

#include "client/local_file.h"
#include "client/subcommands.h"
#include "client/upgrade_transfer.h"
#include "protocol/request_text.h"

namespace zot::client {
namespace {

// What tells one life of an agent from the next.
struct AgentLife {
    std::string version;
    int32_t openedConnections = 0;
};

bool AskForLife(const Target& target, AgentLife& life, std::string& error) {
    Answer answer;
    if (!Ask(target, ComposeRequest("GetInfo", {}), answer, error)) return false;
    std::string text;
    for (const std::string& line : answer.lines) text += line + "\n";
    life.version = GetValue(text, "AgentVersion");
    life.openedConnections = ToInt(GetValue(text, "OpenedConnections"));
    if (answer.code == "200" && !life.version.empty()) return true;
    error = "the agent does not tell its version";
    return false;
}

// Asks until another life answers than the one before: the old agent serves on for a moment. The
// new one counts its connections from the start; or nobody answered in between.
bool AwaitNewLife(const Target& target, const AgentLife& before, AgentLife& now) {
    constexpr std::chrono::milliseconds kPause{50};
    constexpr std::chrono::milliseconds kAnswerTime{2000};
    Deadline deadline(target.timeout);
    bool gone = false;
    std::string error;
    while (deadline.Remaining() > 0) {
        Target attempt = target;
        attempt.timeout = std::min(kAnswerTime, std::chrono::milliseconds(deadline.Remaining()));
        if (!AskForLife(attempt, now, error)) {
            gone = true;
        } else if (gone || now.openedConnections <= before.openedConnections) {
            return true;
        }
        std::this_thread::sleep_for(kPause);
    }
    return false;
}

// A bar that is drawn over itself.
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

// Returns an empty text when the file can be sent.
std::string ReadModule(const std::string& path, std::string& module) {
    std::string error;
    if (!ReadWholeFile(path, kMaxModuleSize, module, error)) return error;
    if (module.size() >= kMinModuleSize) return {};
    return path + " has less than " + std::to_string(kMinModuleSize) +
           " bytes, which agents do not take";
}

}  // namespace

int UpgradeAgent(Invocation& call) {
    const Console& console = call.console;
    const Target& target = call.options.target;
    if (call.options.words.size() != 2) {
        return Fail(console, "upgrade needs the name of a FILE", kWrongUsage);
    }
    const std::string& path = call.options.words[1];
    std::string module;
    std::string error = ReadModule(path, module);
    if (!error.empty() || !TakePassword(call, error)) return Fail(console, error, kWrongUsage);

    Answer answer;
    AgentLife before, now;
    if (!AskForLife(target, before, error) ||
        !TransferModule(target, module, ProgressBar(console, module.size()), answer, error)) {
        return Fail(console, error, kNoReply);
    }
    if (answer.code != "200") {
        if (answer.code == "302") {
            console.err << "zotq: another transfer is under way, or one was broken off and the "
                           "agent must be restarted (zotq ReloadApp)\n";
        }
        return FinishWithReply(call, answer);
    }
    if (!AwaitNewLife(target, before, now)) {
        return Fail(console, "the agent took " + path + ", but no new agent answers", kNoReply);
    }
    answer.lines = {"AgentVersion=" + now.version};
    return FinishWithReply(call, answer);
}

}  // namespace zot::client
