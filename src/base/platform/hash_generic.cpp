#include "base/platform/hash.h"

namespace zot {

HashFunctions AcceleratedHashes() { return {}; }

}  // namespace zot
