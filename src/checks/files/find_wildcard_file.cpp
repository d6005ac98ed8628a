#include "checks/files/find_wildcard_file.h"

#include "checks/files/directory_iterator.h"
#include "checks/files/path.h"

namespace zot {

VyString FindWildcardFile(std::string_view path) {
    FindRecord record;
    std::string_view folder = DirectoryPart(path);
    if (FindFirst(folder, NamePart(path), kFindNoDirectories, record) != 0) return {};
    return VyString::Concat(folder, record.name);
}

}  // namespace zot
