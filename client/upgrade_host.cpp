#include "client/upgrade_host.h"

#include <algorithm>
#include <thread>
#include <vector>

#include "base/numbers.h"
#include "client/agent_client.h"
#include "client/log_scan.h"
#include "client/module_file.h"
#include "client/replies.h"
#include "client/text.h"

namespace zot::client {
namespace {

using std::chrono::milliseconds;

// What distinguishes one life of an agent from the next.
struct AgentLife {
    std::string version;
    std::string runningOs;
    int64_t connections = 0;  // since its start, this one included
};

bool AskForLife(const Target& target, AgentLife& life, std::string& error) {
    Answer answer;
    if (!Ask(target, ComposeRequest("GetInfo", {}), answer, error)) return false;
    std::vector<Record> records;
    if (answer.code == "200" && ReadReply("GetInfo", {}, answer, records, error)) {
        life.version = Text(records[0], "agent_version");
        life.runningOs = Text(records[0], "running_os");
        life.connections =
            static_cast<int64_t>(Number(records[0], "opened_connections").value_or(0));
    }
    if (!life.version.empty()) return true;
    error = "the agent does not tell its version";
    return false;
}

// An agent that has just begun is hard to distinguish from the next: by its first answer the new
// one could have as many connections. So it gets some more.
bool AskForOldLife(const Target& target, AgentLife& life, std::string& error) {
    constexpr int64_t kEnough = 8;
    if (!AskForLife(target, life, error)) return false;
    for (int i = 0; i < kEnough && life.connections < kEnough; ++i) {
        if (!AskForLife(target, life, error)) return false;
    }
    return true;
}

// The log in which an agent reports that an upgrade was undone. It may be off, or not readable for
// us.
class UndoneLog {
  public:
    explicit UndoneLog(const Target& target) : target_(target) {
        Answer answer;
        std::string ignored;
        if (!Ask(target, ComposeRequest("GetSettings", {}), answer, ignored)) return;
        std::string on;
        for (const std::string& line : answer.lines) {
            if (line.starts_with("BadLogFile=")) path_ = line.substr(line.find('=') + 1);
            if (line.starts_with("LogBadConn=")) on = line.substr(line.find('=') + 1);
        }
        Scan scan;
        if (on != "1" || path_.empty() || !Read(scan)) path_.clear();
    }
    bool TellsOfIt() {
        Scan scan;
        return !path_.empty() && Read(scan) && scan.found;
    }

  private:
    bool Read(Scan& scan) {
        Answer answer;
        std::string ignored;
        auto params =
            ScanParams(path_, "Upgrade failed, previous agent started", position_, Find::kNext);
        if (!Ask(target_, ComposeRequest("TEST-TextLog", params), answer, ignored)) return false;
        bool missing =
            answer.code == "301" && !answer.lines.empty() && answer.lines[0].starts_with("File ");
        // The failure may be its first line.
        if (missing) position_ = kFromTheStart;
        return missing || (answer.code == "200" && TakeScan(answer, scan, position_));
    }

    Target target_;
    std::string path_;
    ScanPosition position_;
};

// Asks until a new process answers: the old agent serves for another moment.
bool AwaitNewLife(const Target& target, AgentLife& life, const Deadline& deadline) {
    constexpr milliseconds kPause{50};
    constexpr milliseconds kAnswerTime{2000};
    std::string ignored;
    while (!deadline.Passed()) {
        Target attempt = target;
        attempt.timeout = std::min(kAnswerTime, milliseconds(deadline.Remaining()));
        AgentLife now;
        if (AskForLife(attempt, now, ignored)) {
            bool isNew = now.connections <= life.connections;
            life = now;
            if (isNew) return true;
        }
        std::this_thread::sleep_for(kPause);
    }
    return false;
}

UpgradeResult Failed(UpgradeResult::Kind kind, std::string message) {
    UpgradeResult result;
    result.kind = kind;
    result.message = std::move(message);
    return result;
}

}  // namespace

UpgradeResult UpgradeHost(const Target& target, const UpgradeOrders& orders,
                          const TransferProgress& progress) {
    using Kind = UpgradeResult::Kind;
    AgentLife life;
    std::string error;
    if (!AskForOldLife(target, life, error)) return Failed(Kind::kFailed, error);
    std::string misfit = orders.force ? "" : ModuleMisfit(orders.module, life.runningOs);
    if (!misfit.empty()) return Failed(Kind::kUnfit, misfit);
    UndoneLog log(target);

    UpgradeResult result;
    if (!TransferModule(target, orders.module, progress, result.answer, error)) {
        return Failed(Kind::kFailed, error);
    }
    if (result.answer.code != "200") {
        result.kind = Kind::kRefused;
        result.message = Complaint("UpgradeCode", result.answer);
        return result;
    }
    auto begin = Deadline::Clock::now();
    ++life.connections;  // that of the transfer
    if (!AwaitNewLife(target, life, Deadline(orders.patience))) {
        double waited = std::chrono::duration<double>(orders.patience).count();
        return Failed(Kind::kFailed,
                      "no new agent answers " + FormatSeconds(waited) + " after the transfer");
    }
    result.seconds = std::chrono::duration<double>(Deadline::Clock::now() - begin).count();
    // The previous agent may answer before its return is written down.
    constexpr milliseconds kSettling{250};
    std::this_thread::sleep_for(kSettling);
    if (log.TellsOfIt()) {
        return Failed(Kind::kFailed, "the new agent did not start, and the previous one is back");
    }
    result.kind = Kind::kDone;
    result.version = life.version;
    return result;
}

}  // namespace zot::client
