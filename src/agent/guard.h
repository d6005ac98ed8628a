// The guard of an upgrade: a process that outlives the agent until the new one listens. If that
// does not happen it puts the old executable back and starts it.
//
// It learns what happens to the script from a pipe, of which everything that the script starts
// holds an end: a byte says that the new agent listens, the end of the pipe that nothing is left.
// An agent too old to know of guards says nothing and may close the pipe early, so the guard also
// looks at its pid file or, where there is none, tries to connect.
//
// For the service manager it is the main process meanwhile, so it ends only when the agent that it
// leaves serves.
#pragma once

#include <netinet/in.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "agent/agent_control.h"
#include "agent/handover.h"
#include "agent/next_agent.h"
#include "agent/service_manager.h"
#include "agent/signals.h"
#include "agent/upgrade.h"
#include "base/owners.h"
#include "config/settings.h"

namespace zot {

class UpgradeGuard {
  public:
    // `reserve` holds the agent's port, if it could be reserved.
    UpgradeGuard(AgentServices& services, const StartArguments& arguments, UpgradeOrder& order,
                 const UniqueFd& reserve);
    UpgradeGuard(const UpgradeGuard&) = delete;
    UpgradeGuard& operator=(const UpgradeGuard&) = delete;

    // Keeps the old executable under another name and starts the guard. Returns false when that
    // fails: the upgrade would have no way back.
    bool Start();
    // The environment for the script.
    char** Environment() { return environment_->Variables(); }
    // The script could not be executed: ends the guard and removes what was kept.
    void CallOff();

  private:
    bool Lock();
    bool KeepOld();
    bool CopyOld();
    void LetGo() const noexcept;
    void CopyArguments();
    [[noreturn]] void Run() noexcept;
    void Isolate() noexcept;
    bool AwaitNewAgent() noexcept;
    int LookInterval(bool pipeEnded) const noexcept;
    bool MayStillListen() const noexcept;
    void AfterCopy() noexcept;
    bool OldIsInPlace() const noexcept;
    void DropReserve() noexcept;
    bool Listens() noexcept;
    void EndWhatWasStarted() const noexcept;
    void PutBack() noexcept;
    bool StartPrevious() noexcept;
    bool AwaitPrevious(pid_t starter) const noexcept;

    AgentServices& services_;
    SettingsSnapshot settings_;
    StartArguments arguments_;
    UpgradeOrder& order_;
    const ServiceManager manager_;
    const int reserve_;  // its number; -1 for none
    bool holdsReserve_ = false;

    std::string program_, kept_, lockPath_, title_;
    const NextAgent next_;
    struct stat old_ {};
    bool hadOld_ = false;
    int64_t deadline_ = 0;          // on the clock of MonotonicMs
    int64_t nextProbe_ = 0;         // with a connection
    bool copied_ = false;           // the script has put the new executable in place
    bool takesOver_ = false;        // the new agent takes a hand-over
    sockaddr_in reserveAddress_{};  // where the old agent listened
    UniqueFd lock_;  // on a file of its own: anybody who may read the executable could lock that
    UniqueFd ear_;
    UniqueFd mouth_;
    std::optional<HandOverEnvironment> environment_;  // for the script

    // What the previous agent would be started with. These are copies, because the guard's title
    // overwrites the originals.
    bool oldTakesOver_ = false;
    std::deque<std::string> texts_;
    std::vector<char*> previousArguments_;
    std::vector<char*> previousVariables_;
    std::optional<HandOverEnvironment> previousEnvironment_;
    pid_t pid_ = -1;
};

}  // namespace zot
