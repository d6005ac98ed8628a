#include "base/mapped_bytes.h"

#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>

#include "base/platform/system.h"

namespace zot {
namespace {

bool guarded = false;
thread_local MappedBytes* current = nullptr;

void OnBusError(int signalNumber, siginfo_t* info, void*) {
    const int error = errno;
    if (current == nullptr || !current->ReplaceIfAt(info->si_addr)) {
        // Nothing of ours: the process ends by this signal, as it would without a handler.
        signal(signalNumber, SIG_DFL);
        raise(signalNumber);
    }
    errno = error;
}

}  // namespace

void GuardMappedBytes() {
    struct sigaction action {};
    action.sa_sigaction = OnBusError;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    sigemptyset(&action.sa_mask);
    guarded = sigaction(SIGBUS, &action, nullptr) == 0;
}

MappedBytes::MappedBytes(int fd, int64_t offset, size_t size) noexcept {
    if (!guarded || size == 0) return;
    static const int64_t pageSize = sysconf(_SC_PAGESIZE);
    const int64_t before = offset % pageSize;
    size_ = size + static_cast<size_t>(before);
    void* mapped = mmap(nullptr, size_, PROT_READ, MAP_SHARED, fd, offset - before);
    if (mapped == MAP_FAILED) return;
    if (!ExpectMapped(mapped, size_)) {
        munmap(mapped, size_);
        return;
    }
    begin_ = static_cast<char*>(mapped);
    view_ = {begin_ + before, size};
    current = this;
}

MappedBytes::~MappedBytes() {
    if (begin_ == nullptr) return;
    current = nullptr;
    munmap(begin_, size_);
}

bool MappedBytes::ReplaceIfAt(const void* address) noexcept {
    const char* at = static_cast<const char*>(address);
    if (at < begin_ || at >= begin_ + size_) return false;
    whole_ = false;
    return mmap(begin_, size_, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0) !=
           MAP_FAILED;
}

}  // namespace zot
