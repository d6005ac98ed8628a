// Receives a new executable and prepares the script that puts it in the old one's place.
//
// After UpgradeCode was answered with "200", the connection carries the raw bytes of the new
// executable and then, in one receive, the 16 bytes of their MD5 digest, encrypted with the
// request's key. If it matches, a shell script is written. The main loop executes it; the script
// swaps the files and starts the new agent with the old one's arguments.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

#include "base/md5.h"
#include "base/owners.h"
#include "base/vystring.h"
#include "config/settings.h"
#include "protocol/packet_cipher.h"
#include "protocol/reply.h"

namespace zot {

// Allows one transfer at a time in the whole process, and none between the end of one and the new
// program.
class UpgradeGate {
  public:
    // Returns false when a transfer or a hand-over already holds the gate.
    bool Enter();
    void Leave();

  private:
    std::mutex upgradeMutex_;
    bool upgradeBusy_ = false;
};

// A finished transfer: what the main loop needs to put the new executable in place.
struct UpgradeOrder {
    std::string scriptPath;  // empty when there is no order
    std::string modulePath;
    UniqueFd module;  // kept open: its lock keeps away other agents with the same folder
    UniqueFd script;  // for reading only, since it is to be executed

    // Removes the two files, but none that has taken their names since. Async-signal-safe.
    void RemoveFiles() const noexcept;
};

// The transfer of one session.
class UpgradeTransfer {
  public:
    explicit UpgradeTransfer(UpgradeGate& gate) : gate_(gate) {}
    // A transfer that breaks off leaves no file behind, but the gate stays closed until the agent
    // restarts: that is how servers know a failed upgrade.
    ~UpgradeTransfer();
    UpgradeTransfer(const UpgradeTransfer&) = delete;
    UpgradeTransfer& operator=(const UpgradeTransfer&) = delete;

    // Answers the UpgradeCode request, whose first parameter line is the size of the executable in
    // bytes.
    void Begin(std::string_view params, const AgentSettings& settings, Reply& reply);

    // Whether further bytes of the connection belong to the transfer. After an answer of "501" to
    // the size this stays true, and the gate closed.
    bool InProgress() const { return inProgress_; }

    // Takes the bytes of one receive. Once InProgress() is false the transfer is over. It succeeded
    // if `errorText` is empty; then there is an order and the gate stays closed.
    void Receive(std::string_view data, const PacketCipher& cipher, const AgentSettings& settings,
                 VyString& errorText);

    bool HasOrder() const { return !order_.scriptPath.empty(); }
    UpgradeOrder TakeOrder() noexcept { return std::move(order_); }

  private:
    bool OpenFile(const AgentSettings& settings, VyString& errorText);
    bool WriteData(std::string_view& data, VyString& errorText);
    bool CheckTrailer(std::string_view trailer, const PacketCipher& cipher, VyString& errorText);
    bool WriteScript(const AgentSettings& settings, VyString& errorText);
    bool Judge(std::string_view trailer, const PacketCipher& cipher, const AgentSettings& settings,
               VyString& errorText);
    void Finish(std::string_view trailer, const PacketCipher& cipher, const AgentSettings& settings,
                VyString& errorText);
    void Release();
    void RemoveFile();

    UpgradeGate& gate_;
    bool inProgress_ = false;
    bool refused_ = false;  // with "501": nothing that follows is kept
    int64_t expectedSize_ = 0;
    int64_t bytesWritten_ = 0;
    UniqueFd file_;
    std::string filePath_;
    UpgradeOrder order_;
    Md5 digest_;
};

}  // namespace zot
