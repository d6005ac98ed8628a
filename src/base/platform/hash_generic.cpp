#include "base/platform/hash_cpu.h"

namespace zot {

HashFunctions AcceleratedHashes() { return {}; }

}  // namespace zot
