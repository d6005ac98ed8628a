#include "checks/files/file_tests.h"
#include "checks/files/folder_size.h"
#include "checks/files/parameters.h"

namespace zot {

void TestFolderSize(std::string_view params, const AgentSettings& settings, Reply& reply) {
    if (!settings.testFolderSize) return reply.Start("600", "test is not allowed");
    int64_t size = FolderSize(PathLine(params, 1, 8), FlagLine(params, 2));
    if (size < 0) return reply.Start("301", "Folder/File doesn`t exist or access denied");
    reply.Start("200");
    reply.AppendInt64(size);
}

}  // namespace zot
