#include "agent/handover.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string_view>
#include <utility>

#include "base/children.h"
#include "base/files.h"
#include "base/numbers.h"
#include "base/vystring.h"

namespace zot {

// Part of every program that takes a hand-over, and so found in its file too.
extern const char kHandOverMark[];
const char kHandOverMark[] = "zot takes over: 1";

namespace {

// Enough for a guard to remove a file and end.
constexpr int kGuardPatienceMs = 1000;

bool IsKind(int descriptor, mode_t kind) {
    struct stat info {};
    return fstat(descriptor, &info) == 0 && (info.st_mode & S_IFMT) == kind;
}

// The descriptor, if it is still open and of this kind. A program in between that did not know of
// hand-overs may have passed on the variable alone.
UniqueFd Inherit(int descriptor, mode_t kind) {
    if (descriptor <= STDERR_FILENO || !IsKind(descriptor, kind)) return UniqueFd();
    fcntl(descriptor, F_SETFD, FD_CLOEXEC);
    return UniqueFd(descriptor);
}

bool IsVariable(const char* variable) {
    return std::string_view(variable).starts_with(kHandOverPrefix);
}

}  // namespace

HandOver::HandOver(char** envp) {
    for (char** variable = envp; *variable != nullptr; ++variable) {
        if (!IsVariable(*variable)) continue;
        const auto value = std::string_view(*variable).substr(kHandOverPrefix.size());
        int32_t reserve = -1;
        int32_t guard = -1;
        ParseInt(FieldOf(value, 1, ':'), reserve);
        ParseInt(FieldOf(value, 2, ':'), guard);
        reserve_ = Inherit(reserve, S_IFSOCK);
        guard_ = Inherit(guard, S_IFIFO);
        expected_ = true;
        variable_ = variable;
        return;
    }
}

void HandOver::Complete() noexcept {
    expected_ = false;
    for (char** rest = std::exchange(variable_, nullptr); rest != nullptr && *rest != nullptr;
         ++rest) {
        *rest = rest[1];
    }
    reserve_.Reset();
    if (!guard_) return;
    char word = 0;
    if (write(guard_.Get(), &word, 1) == 1) {
        pollfd gone = {guard_.Get(), 0, 0};
        poll(&gone, 1, kGuardPatienceMs);
    }
    guard_.Reset();
}

HandOverEnvironment::HandOverEnvironment(char** envp, int reserve, int guard) {
    char text[96];
    std::snprintf(
        text, sizeof text, "%.*s%d:%d:%lld.%lld", static_cast<int>(kHandOverPrefix.size()),
        kHandOverPrefix.data(), reserve, guard, static_cast<long long>(getpid()),
        static_cast<long long>(std::chrono::system_clock::now().time_since_epoch().count()));
    entry_ = text;
    variables_.push_back(entry_.data());
    for (; *envp != nullptr; ++envp) {
        if (!IsVariable(*envp)) variables_.push_back(*envp);
    }
    variables_.push_back(nullptr);
}

void LeaveOpen(int descriptor) noexcept { fcntl(descriptor, F_SETFD, 0); }

bool TakesHandOver(const char* path) {
    const std::string_view mark = kHandOverMark;
    constexpr size_t kBlock = size_t{64} * 1024;
    UniqueFd file(open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (!file || !IsKind(file.Get(), S_IFREG)) return false;
    auto buffer = ReadBuffer<char>(kBlock);
    size_t kept = 0;  // the end of the block before, which may be the start of the mark
    for (;;) {
        ssize_t count = read(file.Get(), buffer.get() + kept, kBlock - kept);
        if (count <= 0) return false;
        std::string_view text(buffer.get(), kept + static_cast<size_t>(count));
        if (text.find(mark) != std::string_view::npos) return true;
        kept = std::min(text.size(), mark.size() - 1);
        std::memmove(buffer.get(), text.data() + text.size() - kept, kept);
    }
}

}  // namespace zot
