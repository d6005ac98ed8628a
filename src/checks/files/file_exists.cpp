#include <cstdint>
#include <ctime>
#include <string_view>

#include "base/vystring.h"
#include "checks/files/directory_iterator.h"
#include "checks/files/file_checks.h"
#include "checks/files/parameters.h"
#include "checks/files/path.h"
#include "config/settings.h"
#include "protocol/reply.h"

namespace zot {

void TestFileExists(std::string_view params, const AgentSettings& /*settings*/, Reply& reply) {
    VyString path = PathLine(params, 1, 7);
    int64_t size = 0;
    time_t changeTime = 0;
    time_t modificationTime = 0;
    bool found = FileInfo(path, size, changeTime, modificationTime);
    if (!found) {
        path = FindWildcardFile(path);
        found = FileInfo(path, size, changeTime, modificationTime);
    }
    if (!found) return reply.Start("301", "no such file or acess denied");
    reply.Start("200");
    reply.AppendInt64(size);
    reply.AppendLocalTime(changeTime);
    reply.AppendLocalTime(modificationTime);
    reply.AppendLine(path, Escaping::kLineBreaks);
    reply.AppendLine("min");
    reply.AppendInt(static_cast<int32_t>((std::time(nullptr) - modificationTime) / 60));
}

}  // namespace zot
