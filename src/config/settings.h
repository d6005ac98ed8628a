// AgentSettings: everything that is configured about the agent, and the store that publishes it.
//
// The record is filled from the configuration file and changed by SetSettings. Readers never see it
// change: each takes a snapshot, which stays unchanged for as long as it is held.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "base/vystring.h"

namespace zot {

struct AgentSettings {
    AgentSettings() = default;
    AgentSettings(const AgentSettings&) = default;
    AgentSettings& operator=(const AgentSettings&) = default;
    ~AgentSettings() { password.Wipe(); }

    // Counts the publications of the settings; never repeated.
    uint64_t revision = 0;

    // Set by the command line before the file is read; no load touches them.
    bool interactive = false;  // stays in the terminal
    bool verbose = false;      // writes the verbose log
    bool debug = false;        // traces packets too
    char configPath[512] = "";

    VyString loadError;  // why the last load failed; empty if it did not

    VyString tmpDir;
    VyString agentPath;
    VyString pidFile;
    VyString host;
    int32_t port = 0;
    int32_t timeout = 0;          // milliseconds; below 1: a session never times out
    int32_t delayForScripts = 0;  // microseconds
    int32_t minRequestKey = 0;    // bytes
    int32_t replayWindow = 0;     // seconds; below 1: off
    VyString auditLog;            // a file, or "syslog"
    VyString password;
    VyString comment;
    VyString verboseLogFile;
    bool logSuccess = false;
    VyString okLogFile;
    bool filterActive = false;
    bool logFails = false;
    VyString badLogFile;
    VyString filterList;  // entries separated by CR LF
    bool allowUpdates = false;
    VyString updateAddr;
    VyString filterMarks;  // one character for each entry; '1' makes it active
    bool allowManage = false;
    VyString manageAddr;
    VyString activeFilter;  // derived: CR LF, then every active entry and CR LF
    bool testUnc = false;
    bool testFreeSpace = false;
    bool testFolderSize = false;
    bool testCountFiles = false;
    bool testFileExists = false;
    bool testFileCrc = false;
    bool testCompareFiles = false;
    bool testProcess = false;
    bool testService = false;
    bool testNtEventLog = false;
    bool testCpuUsage = false;
    bool testPerfCounter = false;
    bool testSnmp = false;
    bool testScript = false;
    bool testExternal = false;
    bool testPing = false;
    bool testTcp = false;
    bool testUdp = false;
    bool testTextLog = false;
    bool testShellScript = false;
    bool actExecute = false;
    bool actTcpUdp = false;
    bool actSyslog = false;
    VyString cpuUsageScript;
    VyString procListScript;
    VyString procCntScript;
};

using SettingsSnapshot = std::shared_ptr<const AgentSettings>;

// The one place that holds the current settings. A change works on a copy and publishes it whole.
class SettingsStore {
  public:
    SettingsStore();
    ~SettingsStore();
    SettingsStore(const SettingsStore&) = delete;
    SettingsStore& operator=(const SettingsStore&) = delete;

    // The current settings; never null. Costs one short lock, no copy.
    SettingsSnapshot Snapshot() const;

    // Runs `change` on a copy under the configuration mutex, publishes the copy whatever `change`
    // returns, and returns that. Changes run one after another, so none loses another's work.
    bool Change(const std::function<bool(AgentSettings&)>& change);
    // Change for the main thread, which must not wait for a session's work: returns nothing, and
    // does nothing, while another change is running.
    std::optional<bool> TryChange(const std::function<bool(AgentSettings&)>& change);

    // The settings for a crash handler, which must not take a lock: valid as long as the store
    // lives, because nothing is freed any more after this call. Async-signal-safe.
    const AgentSettings& ForCrashHandler() noexcept;

  private:
    bool ChangeLocked(const std::function<bool(AgentSettings&)>& change);
    void Publish(std::shared_ptr<AgentSettings> fresh);

    std::mutex configMutex_;            // each whole load, save or change
    mutable std::mutex snapshotMutex_;  // the pointer below
    SettingsSnapshot current_;
    uint64_t revisions_ = 0;  // under configMutex_
    std::atomic<const AgentSettings*> latest_{nullptr};
    std::atomic<bool> crashing_{false};
    std::vector<SettingsSnapshot> keptForCrash_;  // under configMutex_
};

}  // namespace zot
