// AgentSettings: everything the agent is configured with, and the store that publishes it.
//
// The record is filled from the configuration file and changed by SetSettings. Readers never see
// it change: each takes a snapshot, which stays whole and unchanged for as long as it is held.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "base/vystring.h"

namespace zot {

struct AgentSettings {
    AgentSettings() = default;
    AgentSettings(const AgentSettings&) = default;
    AgentSettings& operator=(const AgentSettings&) = default;
    ~AgentSettings() { password.Wipe(); }

    // Set by the command line before the file is read; no load touches them.
    int32_t interactive = 0;  // stays in the terminal
    int32_t verbose = 0;      // writes the verbose log
    int32_t debug = 0;        // traces packets too
    char configPath[512] = "";

    VyString tmpDir;
    VyString agentPath;
    VyString pidFile;
    VyString host;
    int32_t port = 0;
    int32_t timeout = 0;          // milliseconds; below 1: a session never times out
    int32_t delayForScripts = 0;  // microseconds
    VyString password;
    VyString comment;
    VyString verboseLogFile;
    int32_t logSuccess = 0;
    VyString okLogFile;
    int32_t filterActive = 0;
    int32_t logFails = 0;
    VyString badLogFile;
    VyString filterList;  // entries separated by CR LF
    int32_t allowUpdates = 0;
    VyString updateAddr;
    VyString filterMarks;  // one character an entry, '1' makes it active
    int32_t allowManage = 0;
    VyString manageAddr;
    VyString activeFilter;  // derived: CR LF, then every active entry and CR LF
    int32_t testUnc = 0;
    int32_t testFreeSpace = 0;
    int32_t testFolderSize = 0;
    int32_t testCountFiles = 0;
    int32_t testFileExists = 0;
    int32_t testFileCrc = 0;
    int32_t testCompareFiles = 0;
    int32_t testProcess = 0;
    int32_t testService = 0;
    int32_t testNtEventLog = 0;
    int32_t testCpuUsage = 0;
    int32_t testPerfCounter = 0;
    int32_t testSnmp = 0;
    int32_t testScript = 0;
    int32_t testExternal = 0;
    int32_t testPing = 0;
    int32_t testTcp = 0;
    int32_t testUdp = 0;
    int32_t testTextLog = 0;
    int32_t testShellScript = 0;
    int32_t actExecute = 0;
    int32_t actTcpUdp = 0;
    int32_t actSyslog = 0;
    VyString cpuUsageScript;
    VyString procListScript;
    VyString procCntScript;
};

using SettingsSnapshot = std::shared_ptr<const AgentSettings>;

// The one place that holds the current settings. Changes are made on a copy and published whole.
class SettingsStore {
  public:
    SettingsStore();
    ~SettingsStore();
    SettingsStore(const SettingsStore&) = delete;
    SettingsStore& operator=(const SettingsStore&) = delete;

    // The current settings; never null. Costs one short lock, no copy.
    SettingsSnapshot Snapshot() const;

    // Runs `change` on a copy under the configuration mutex, publishes the copy whatever `change`
    // returns, and returns that. Changes run one after the other, so none loses another's work.
    int Change(const std::function<int(AgentSettings&)>& change);

    // The settings for a crash handler, which may take no lock: valid for as long as the store
    // lives, since nothing is freed any more once this was called.
    // Async-signal-safe.
    const AgentSettings& ForCrashHandler() noexcept;

  private:
    void Publish(SettingsSnapshot fresh);

    std::mutex configMutex_;            // each whole load, save or change
    mutable std::mutex snapshotMutex_;  // the pointer below
    SettingsSnapshot current_;
    std::atomic<const AgentSettings*> latest_{nullptr};
    std::atomic<bool> crashing_{false};
    std::vector<SettingsSnapshot> keptForCrash_;  // under configMutex_
};

}  // namespace zot
