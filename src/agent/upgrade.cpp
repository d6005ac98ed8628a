#include "agent/upgrade.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
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

// Whether the path still leads to the open file.
bool Names(VyString& path, const UniqueFd& file) {
    struct stat named {};
    struct stat opened {};
    return lstat(path.Terminate(), &named) == 0 && fstat(file.Get(), &opened) == 0 &&
           named.st_dev == opened.st_dev && named.st_ino == opened.st_ino;
}

bool Lock(const UniqueFd& file) { return flock(file.Get(), LOCK_EX | LOCK_NB) == 0; }

// Creates the file anew and locks it, unless another process holds a lock on
// the existing one. The lock on the old file is kept until the new one is made, so two agents that
// come at once cannot both succeed.
UniqueFd CreateLocked(VyString& path) {
    UniqueFd old(open(path.Terminate(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (old && Names(path, old) && !Lock(old) && errno == EWOULDBLOCK) return UniqueFd();
    UniqueFd file = CreateAnew(path.Terminate());
    if (file && Lock(file) && Names(path, file)) return file;
    return UniqueFd();
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
    filePath_ = VyString::Concat(settings.tmpDir, kModuleName);
    file_ = CreateLocked(filePath_);
    if (file_) RememberFile(filePath_);
    digest_.Init();
    if (file_) return true;
    errorText = "Cannot create temp file";
    filePath_.Clear();
    Release();
    return false;
}

// Writes what belongs to the file and leaves the rest in `data`.
bool UpgradeTransfer::WriteData(std::string_view& data, VyString& errorText) {
    auto missing = static_cast<uint64_t>(expectedSize_ - bytesWritten_);
    std::string_view part = data.substr(0, std::min<uint64_t>(missing, data.size()));
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
    VyString path = VyString::Concat(settings.tmpDir, kScriptName);
    Making making;
    UniqueFd script;
    if (IsPlainName(settings.agentPath) && IsPlainName(path) && Names(filePath_, file_)) {
        script = CreateAnew(path.Terminate());
        if (script) RememberFile(path);
    }
    if (script && WriteAll(script.Get(), ScriptText(settings.agentPath, filePath_, path))) {
        if (fchmod(script.Get(), kExecutable) == 0) {
            order_.scriptPath = path;
            return true;
        }
        errorText = "Cannot set exec flag for script";
    }
    if (errorText.Empty()) errorText = "Binary code transferred. Cannot create script file";
    if (script) {
        unlink(path.Terminate());
        ForgetFile(path);
    }
    return false;
}

void UpgradeTransfer::Release() {
    gate_.Leave();
    inProgress_ = false;
}

void UpgradeTransfer::RemoveFile() {
    file_.Reset();
    if (filePath_.Empty()) return;
    unlink(filePath_.Terminate());
    ForgetFile(filePath_);
}

}  // namespace zot
