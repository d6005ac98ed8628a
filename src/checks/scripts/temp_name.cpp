#include "checks/scripts/temp_name.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <mutex>

#include "base/files.h"
#include "base/loose_ends.h"

namespace zot {
namespace {

constexpr size_t kRoomForName = 16;
constexpr size_t kLongestCandidate = 1023;
constexpr int kMaxTries = 2000;
constexpr int32_t kLastCounter = 1000000;

std::mutex tempNameLock;
int64_t tempSequence = 0;
int32_t tempCounter = 0;

int32_t NextCounter() {
    std::lock_guard<std::mutex> lock(tempNameLock);
    tempCounter = tempCounter >= kLastCounter ? 1 : tempCounter + 1;
    return tempCounter;
}

// Finds a free "DIRECTORY/tmp-ID-COUNTER".
bool FindFreeName(const char* directory, size_t length, char* buffer, size_t size) {
    auto id = static_cast<long long>(UniqueId());
    for (int i = 0; i < kMaxTries; ++i) {
        int written = std::snprintf(buffer, size, "%.*s/tmp-%lld-%d", static_cast<int>(length),
                                    directory, id, NextCounter());
        auto needed = static_cast<size_t>(written);
        // A name cut short would no longer be unique.
        if (written < 0 || needed >= size || needed > kLongestCandidate) return false;
        if (!IsRegularFile(buffer)) return true;
    }
    return false;
}

}  // namespace

int64_t UniqueId() {
    std::lock_guard<std::mutex> lock(tempNameLock);
    return static_cast<int64_t>(static_cast<uint32_t>(getpid()) << 16) + ++tempSequence;
}

bool MakeTempName(std::string_view tmpDir, char* buffer, size_t size, const char* fixedName) {
    if (buffer == nullptr || size == 0) return false;
    buffer[0] = '\0';
    if (size < kRoomForName || tmpDir.size() + 1 > size - kRoomForName) return false;
    if (fixedName != nullptr) {
        std::snprintf(buffer, size, "%.*s/%s", static_cast<int>(tmpDir.size()), tmpDir.data(),
                      fixedName);
        return true;
    }
    if (FindFreeName(tmpDir.data(), tmpDir.size(), buffer, size)) return true;
    buffer[0] = '\0';
    return false;
}

TempFile::Result TempFile::Create(std::string_view tmpDir, std::string_view prefix) {
    // The name is chosen before the file is created, so somebody else's file can come in between,
    // and a numbered name may be left from an agent that was killed: skip both.
    Making making;
    for (int i = 0; i < kMaxTries; ++i) {
        char fixedName[64] = "";
        if (!prefix.empty()) {
            std::snprintf(fixedName, sizeof fixedName, "%.*s%lld.txt",
                          static_cast<int>(prefix.size()), prefix.data(),
                          static_cast<long long>(UniqueId()));
        }
        char candidate[sizeof path_];
        if (!MakeTempName(tmpDir, candidate, sizeof candidate,
                          prefix.empty() ? nullptr : fixedName)) {
            return Result::kNoName;
        }
        file_ = CreateExclusively(candidate);
        if (file_) {
            std::snprintf(path_, sizeof path_, "%s", candidate);
            RememberFile(path_);
            return Result::kCreated;
        }
        if (errno != EEXIST) break;
    }
    return Result::kNotCreated;
}

bool TempFile::Write(std::string_view content) { return WriteAll(file_.Get(), content); }

bool TempFile::SetMode(unsigned mode) {
    return fchmod(file_.Get(), static_cast<mode_t>(mode)) == 0;
}

void TempFile::Remove() noexcept {
    file_.Reset();
    if (path_[0] == '\0') return;
    unlink(path_);
    ForgetFile(path_);
}

}  // namespace zot
