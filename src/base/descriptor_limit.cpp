#include "base/descriptor_limit.h"

#include <sys/resource.h>

#include <algorithm>
#include <climits>

namespace zot {
namespace {

rlimit given{};
bool raised = false;

}  // namespace

int RaiseDescriptorLimit() noexcept {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return 0;
    if (limit.rlim_cur != limit.rlim_max) {
        rlimit highest = {limit.rlim_max, limit.rlim_max};
        if (setrlimit(RLIMIT_NOFILE, &highest) == 0) {
            given = limit;
            raised = true;
            limit = highest;
        }
    }
    return static_cast<int>(std::min<rlim_t>(limit.rlim_cur, INT_MAX));
}

void RestoreDescriptorLimit() noexcept {
    if (raised) setrlimit(RLIMIT_NOFILE, &given);
}

}  // namespace zot
