#include "checks/files/file_hash.h"
#include "checks/files/file_tests.h"
#include "checks/files/path.h"
#include "protocol/request_text.h"

namespace zot {

void TestFileHash(std::string_view params, const AgentSettings& settings, Reply& reply) {
    if (!settings.testFileCrc) return reply.Start("600", "test is not allowed");
    std::string_view path = GetLine(params, 1);
    struct stat status {};
    if (!StatPath(path, status) || !S_ISREG(status.st_mode)) {
        return reply.Start("301", "File doesn`t exist");
    }
    int64_t limit = ToInt64(GetLine(params, 3));
    if (limit > 0 && limit < status.st_size) {
        reply.Start("200");
        return reply.AppendFormatted("File size %d MB", static_cast<int>(status.st_size >> 20));
    }
    VyString value;
    std::string_view errorText;
    auto algorithm = static_cast<HashAlgorithm>(ToInt(GetLine(params, 2)));
    if (!HashFile(path, algorithm, value, errorText)) return reply.Start("301", errorText);
    reply.Start("200", value);
}

}  // namespace zot
