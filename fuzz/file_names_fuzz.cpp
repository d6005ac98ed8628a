// Paths, masks and file macros, in a folder with a few entries: the first line is a path, the rest
// a mask.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>

#include "checks/files/directory_iterator.h"
#include "checks/files/file_macros.h"
#include "checks/files/path.h"
#include "fuzz/scratch.h"

namespace {

using namespace zot;

struct Folder : fuzz::Scratch {
    Folder() {
        for (const char* name : {"a", "b.txt", ".hidden", "%newestfile%", "[x]"}) Write(name, "x");
        std::filesystem::create_directories("folder/below");
        Write("folder/file", "content");
        std::filesystem::create_symlink("a", "link");
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const Folder folder;
    std::string_view mask(reinterpret_cast<const char*>(data), size);
    std::string_view path = fuzz::TakeLine(mask);
    // With each star the system's matcher takes longer.
    if (std::count(mask.begin(), mask.end(), '*') + std::count(path.begin(), path.end(), '*') > 6) {
        return 0;
    }
    // The rest of the machine's files is not part of the test.
    if (path.starts_with('/') || path.find("..") != std::string_view::npos) return 0;

    std::string_view name = NamePart(path);
    if (name.size() < 4095) {
        fuzz::Require(VyString::Concat(DirectoryPart(path), name) == path);
    }
    VyString resolved = ResolveFileMacros(path);
    fuzz::Require(path.find('%') != std::string_view::npos || resolved == path);
    VyString found = FindWildcardFile(path);
    struct stat status;
    fuzz::Require(found.Empty() || LinkStatPath(found, status));

    FindRecord record;
    bool more = FindFirst(DirectoryPart(path), mask, kFindAll, record);
    for (int entries = 0; more; ++entries) {
        fuzz::Require(entries < 100 && std::strlen(record.name) < sizeof record.name);
        fuzz::Require((record.attributes & kAttrLink) == 0);
        more = FindNext(record);
    }
    return 0;
}
