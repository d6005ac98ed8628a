#include <sys/auxv.h>

#include "base/platform/arm_features.h"

namespace zot {

unsigned long ArmFeatures() {
    unsigned long features = 0;
    return elf_aux_info(AT_HWCAP, &features, sizeof(features)) == 0 ? features : 0;
}

}  // namespace zot
