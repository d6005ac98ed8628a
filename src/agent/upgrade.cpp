#include "agent/upgrade.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <initializer_list>

#include "base/ascii.h"
#include "base/files.h"
#include "base/loose_ends.h"
#include "base/numbers.h"
#include "protocol/request_text.h"

namespace zot {
namespace {

constexpr int64_t kMinSize = 101;
constexpr int64_t kMaxSize = 10485759;
constexpr mode_t kExecutable = 0775;

// Servers, and operators of running agents, rely on these names.
constexpr char kModuleName[] = "/zot__.upd";
constexpr char kScriptName[] = "/zotupd__.sh";

constexpr std::string_view kScriptRest =
    "retries=10\n"
    "rm $oldZOT\n"
    "while [ -f $oldZOT ] &&  [ $retries -gt 0 ]\n"
    "do\n"
    "  retries=`expr $retries - 1`\n"
    "  echo $retries\n"
    "  sleep 1\n"
    "done\n"
    "cp -f $newZOT $oldZOT\n"
    "rm -f $newZOT\n"
    "$oldZOT $1 $2 $3 $4 $5 $6\n";

// The script of the previous upgrade removes itself as its last act, a moment after the agent that
// it started, this one, serves. It must not remove the next script. In interactive mode it ends
// with the agent.
void AwaitEndOfScript(const char* path) {
    constexpr int kTries = 200;
    constexpr timespec kPause = {0, 5L * 1000 * 1000};
    for (int i = 0; i < kTries && access(path, F_OK) == 0; ++i) nanosleep(&kPause, nullptr);
}

std::string PathIn(std::string_view folder, const char* name) {
    return std::string(folder).append(name);
}

// The script uses its names without quotes: a blank in one of them would make it remove and copy
// other files.
bool IsPlainName(std::string_view path) {
    return !path.starts_with('-') && std::all_of(path.begin(), path.end(), [](char c) {
        return IsAlnum(c) || std::string_view("/._+-").find(c) != std::string_view::npos;
    });
}

VyString ScriptText(std::string_view agentPath, std::string_view modulePath,
                    std::string_view scriptPath) {
    VyString text("#! /bin/sh\noldZOT='");
    for (std::string_view part :
         {agentPath, std::string_view("'\nnewZOT='"), modulePath, std::string_view("'\n"),
          kScriptRest, std::string_view("rm "), scriptPath, std::string_view("\n")}) {
        text.Append(part);
    }
    return text;
}

}  // namespace

bool UpgradeGate::Enter() {
    std::lock_guard<std::mutex> lock(upgradeMutex_);
    return !std::exchange(upgradeBusy_, true);
}

void UpgradeGate::Leave() {
    std::lock_guard<std::mutex> lock(upgradeMutex_);
    upgradeBusy_ = false;
}

void UpgradeOrder::RemoveFiles() const noexcept {
    if (LeadsTo(modulePath.c_str(), module.Get())) unlink(modulePath.c_str());
    if (LeadsTo(scriptPath.c_str(), script.Get())) unlink(scriptPath.c_str());
}

UpgradeTransfer::~UpgradeTransfer() {
    if (inProgress_) RemoveFile();
}

void UpgradeTransfer::Begin(std::string_view params, const AgentSettings& settings, Reply& reply) {
    if (!gate_.Enter()) {
        reply.Start("302");
        return;
    }
    inProgress_ = true;
    expectedSize_ = ToInt64(GetLine(params, 1));
    if (expectedSize_ < kMinSize || expectedSize_ > kMaxSize) {
        // The gate stays closed: servers have always seen it so.
        refused_ = true;
        reply.Start("501", "Wrong file parameter(s)");
        return;
    }
    VyString errorText;
    if (OpenFile(settings, errorText)) {
        reply.Start("200");
    } else {
        reply.Start("300", errorText);
    }
}

void UpgradeTransfer::Receive(std::string_view data, const PacketCipher& cipher,
                              const AgentSettings& settings, VyString& errorText) {
    errorText.Clear();
    if (refused_) return;
    if (bytesWritten_ < expectedSize_ && !WriteData(data, errorText)) return;
    if (!data.empty()) Finish(data, cipher, settings, errorText);
}

bool UpgradeTransfer::OpenFile(const AgentSettings& settings, VyString& errorText) {
    Making making;
    filePath_ = PathIn(settings.tmpDir, kModuleName);
    file_ = CreateLocked(filePath_.c_str());
    digest_.Init();
    if (file_) {
        RememberFile(filePath_);
        return true;
    }
    errorText = "Cannot create temp file";
    filePath_.clear();
    Release();
    return false;
}

// Writes what belongs to the file and leaves the rest in `data`.
bool UpgradeTransfer::WriteData(std::string_view& data, VyString& errorText) {
    auto missing = static_cast<uint64_t>(expectedSize_ - bytesWritten_);
    auto size = static_cast<size_t>(std::min<uint64_t>(missing, data.size()));
    std::string_view part = data.substr(0, size);
    if (!WriteAll(file_.Get(), part)) {
        errorText = "Write error";
        RemoveFile();
        Release();
        return false;
    }
    digest_.Update(part.data(), part.size());
    bytesWritten_ += static_cast<int64_t>(part.size());
    data.remove_prefix(part.size());
    return true;
}

// The file is complete, and `trailer` came after it: that decides.
void UpgradeTransfer::Finish(std::string_view trailer, const PacketCipher& cipher,
                             const AgentSettings& settings, VyString& errorText) {
    if (!Judge(trailer, cipher, settings, errorText)) {
        RemoveFile();
        Release();
        return;
    }
    // The gate stays closed: another transfer would change the file that the script will copy.
    inProgress_ = false;
    order_.modulePath = std::move(filePath_);
    order_.module = std::move(file_);
}

bool UpgradeTransfer::Judge(std::string_view trailer, const PacketCipher& cipher,
                            const AgentSettings& settings, VyString& errorText) {
    bool executable = fchmod(file_.Get(), kExecutable) == 0;
    if (!executable) errorText = "Cannot set exec flag new module";
    // A module that cannot run must not replace the agent, but its trailer is still judged.
    if (!CheckTrailer(trailer, cipher, errorText) || !executable) return false;
    return WriteScript(settings, errorText);
}

bool UpgradeTransfer::CheckTrailer(std::string_view trailer, const PacketCipher& cipher,
                                   VyString& errorText) {
    std::array<uint8_t, Md5::kDigestSize> expected;
    std::array<uint8_t, Md5::kDigestSize> sent;
    digest_.Final(expected.data());
    if (trailer.size() == sent.size()) {
        cipher.Decrypt({reinterpret_cast<const uint8_t*>(trailer.data()), trailer.size()},
                       sent.data());
        if (sent == expected) return true;
    }
    errorText = "Wrong CRC";
    return false;
}

bool UpgradeTransfer::WriteScript(const AgentSettings& settings, VyString& errorText) {
    std::string path = PathIn(settings.tmpDir, kScriptName);
    if (!settings.interactive) AwaitEndOfScript(path.c_str());
    Making making;
    UniqueFd script;
    if (IsPlainName(settings.agentPath) && IsPlainName(path) &&
        LeadsTo(filePath_.c_str(), file_.Get())) {
        script = CreateAnew(path.c_str());
        if (script) RememberFile(path);
    }
    if (script && WriteAll(script.Get(), ScriptText(settings.agentPath, filePath_, path))) {
        order_.script.Reset(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
        const bool executable = fchmod(script.Get(), kExecutable) == 0;
        if (executable && order_.script) {
            order_.scriptPath = std::move(path);
            return true;
        }
        if (!executable) errorText = "Cannot set exec flag for script";
    }
    if (errorText.Empty()) errorText = "Binary code transferred. Cannot create script file";
    if (script) {
        unlink(path.c_str());
        ForgetFile(path);
    }
    return false;
}

void UpgradeTransfer::Release() {
    gate_.Leave();
    inProgress_ = false;
}

// Before the file is closed: its lock keeps others from making one of the same name.
void UpgradeTransfer::RemoveFile() {
    if (!filePath_.empty() && LeadsTo(filePath_.c_str(), file_.Get())) unlink(filePath_.c_str());
    file_.Reset();
    ForgetFile(filePath_);
}

}  // namespace zot
