#include <sys/types.h>
//
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/sysctl.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <stdexcept>

#include "tests/support/process_info.h"

namespace zot::test {
namespace {

// The kernel's answer about the process.
std::string Ask(int what, pid_t pid) {
    int name[] = {CTL_KERN, KERN_PROC, what, pid};
    size_t size = 0;
    if (sysctl(name, 4, nullptr, &size, nullptr, 0) == 0) {
        // There may be more by now.
        size += size / 3 + 256;
        std::string answer(size, '\0');
        if (sysctl(name, 4, answer.data(), &size, nullptr, 0) == 0 && size > 0) {
            answer.resize(size);
            return answer;
        }
    }
    throw std::runtime_error("the system tells nothing of process " + std::to_string(pid));
}

kinfo_proc Process(pid_t pid) {
    std::string answer = Ask(KERN_PROC_PID, pid);
    kinfo_proc process{};
    memcpy(&process, answer.data(), std::min(answer.size(), sizeof process));
    return process;
}

// Calls `use` with each record of an answer whose records begin with their size.
template <typename Record, typename Use>
void ForEach(const std::string& answer, Use use) {
    for (size_t at = 0; at + sizeof(int) <= answer.size();) {
        int size = 0;
        memcpy(&size, answer.data() + at, sizeof size);
        if (size <= 0) return;
        Record record{};
        memcpy(&record, answer.data() + at,
               std::min({static_cast<size_t>(size), sizeof record, answer.size() - at}));
        use(record);
        at += static_cast<size_t>(size);
    }
}

// Stops the process while its memory is read.
class Attached {
  public:
    explicit Attached(pid_t pid) : pid_(pid) {
        if (ptrace(PT_ATTACH, pid, nullptr, 0) != 0) throw std::runtime_error("cannot attach");
        waitpid(pid, nullptr, 0);
    }
    ~Attached() { ptrace(PT_DETACH, pid_, reinterpret_cast<caddr_t>(1), 0); }
    Attached(const Attached&) = delete;
    Attached& operator=(const Attached&) = delete;

    std::string Read(uint64_t start, size_t size) const {
        std::string bytes(size, '\0');
        ptrace_io_desc order{PIOD_READ_D, reinterpret_cast<void*>(start), bytes.data(), size};
        bool read = ptrace(PT_IO, pid_, reinterpret_cast<caddr_t>(&order), 0) == 0;
        bytes.resize(read ? order.piod_len : 0);
        return bytes;
    }

  private:
    pid_t pid_;
};

}  // namespace

long ResidentKib(pid_t pid) { return Process(pid).ki_rssize * (getpagesize() / 1024); }

long ThreadCount(pid_t pid) { return Process(pid).ki_numthreads; }

// All threads have the same.
int LargestNice(pid_t pid) { return getpriority(PRIO_PROCESS, static_cast<int>(pid)); }

std::map<int, std::string> DescriptorsOf(pid_t pid) {
    std::map<int, std::string> descriptors;
    // Negative numbers are the working directory, the executable and so on.
    ForEach<kinfo_file>(Ask(KERN_PROC_FILEDESC, pid), [&](const kinfo_file& file) {
        if (file.kf_fd >= 0) descriptors[file.kf_fd] = file.kf_path;
    });
    return descriptors;
}

std::string CommandLineOf(pid_t pid) { return Ask(KERN_PROC_ARGS, pid); }

int CountInMemory(pid_t pid, const std::string& text) {
    std::string maps = Ask(KERN_PROC_VMMAP, pid);
    Attached attached(pid);
    int count = 0;
    ForEach<kinfo_vmentry>(maps, [&](const kinfo_vmentry& entry) {
        if ((entry.kve_protection & KVME_PROT_WRITE) == 0) return;
        std::string bytes = attached.Read(entry.kve_start, entry.kve_end - entry.kve_start);
        for (size_t at = bytes.find(text); at != std::string::npos; at = bytes.find(text, at + 1))
            ++count;
    });
    return count;
}

}  // namespace zot::test
