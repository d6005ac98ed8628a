#include <sys/auxv.h>

#include "base/platform/arm_features.h"

namespace zot {

unsigned long ArmFeatures() { return getauxval(AT_HWCAP); }

}  // namespace zot
