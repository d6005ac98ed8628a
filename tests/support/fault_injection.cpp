#include "tests/support/fault_injection.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <new>
#include <stdexcept>

#include "base/owners.h"

namespace zot::test {

FaultInjection::FaultInjection()
    : path_(dir_.Write("faults", std::string(sizeof(FaultControl), '\0'))) {
    UniqueFd file(open(path_.c_str(), O_RDWR | O_CLOEXEC));
    void* memory =
        mmap(nullptr, sizeof(FaultControl), PROT_READ | PROT_WRITE, MAP_SHARED, file.Get(), 0);
    if (memory == MAP_FAILED) throw std::runtime_error("mmap " + path_);
    control_ = new (memory) FaultControl;
}

FaultInjection::~FaultInjection() { munmap(control_, sizeof(FaultControl)); }

std::vector<std::string> FaultInjection::Environment() const {
    return {std::string(kFaultControlVariable) + "=" + path_,
            "LD_PRELOAD=" ZOT_BUILD_DIR "/libzot_faults.so"};
}

}  // namespace zot::test
