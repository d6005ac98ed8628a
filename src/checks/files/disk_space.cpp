#include "checks/files/disk_space.h"

#include "base/platform.h"
#include "base/vystring.h"

namespace zot {

int DiskSpace(std::string_view path, int64_t& total, int64_t& free, int64_t& available) {
    VyString terminated(path);
    return FileSystemSpace(terminated.Terminate(), total, free, available);
}

}  // namespace zot
