// Parameter lines: 1 mode, 2 file 1, 3 file 2 (modes 1 and 2) or the text (mode 3).
// Mode 1 compares: 4 modification times, 5 sizes, 6 contents; 12, 13 macros in file 1, in file 2.
// Mode 2 finds the content of file 2 in file 1: 9 macros in file 1.
// Mode 3 finds the text in file 1: 4 case-sensitive, 5 whole word; 11 macros in file 1.
#include <sys/stat.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "base/vystring.h"
#include "checks/files/file_checks.h"
#include "checks/files/file_content.h"
#include "checks/files/parameters.h"
#include "checks/files/path.h"
#include "config/settings.h"
#include "protocol/reply.h"
#include "protocol/request_text.h"

namespace zot {
namespace {

constexpr std::string_view kMissing = "File doesn`t exist";

bool StatRegular(std::string_view path, struct stat& status) {
    return StatPath(path, status) && S_ISREG(status.st_mode);
}

void AppendResult(std::optional<bool> result, Reply& reply) {
    if (!result) return reply.Start("301", "I/O Error");
    reply.Start("200");
    reply.AppendFlag(*result);
}

void CompareFiles(std::string_view params, std::string_view path1, const struct stat& status1,
                  Reply& reply) {
    VyString path2 = PathLine(params, 3, 13);
    struct stat status2 {};
    if (!StatRegular(path2, status2)) return reply.Start("301", kMissing);
    bool differ =
        (FlagLine(params, 4) && ShortModificationTime(status1) != ShortModificationTime(status2)) ||
        (FlagLine(params, 5) && status1.st_size != status2.st_size);
    if (differ || !FlagLine(params, 6)) return AppendResult(!differ, reply);
    AppendResult(SameContent(path1, path2), reply);
}

void FindContent(std::string_view params, std::string_view path1, Reply& reply) {
    // No macros here: servers send the flag for file 2 on line 10, but it never had an effect.
    std::string_view path2 = GetLine(params, 3);
    struct stat status2 {};
    if (!StatRegular(path2, status2)) return reply.Start("301", kMissing);
    if (status2.st_size > kMaxSoughtFile) {
        return reply.Start("301", "The size of the second file cannot exceed 8Mb");
    }
    AppendResult(FindFileInFile(path1, path2), reply);
}

}  // namespace

void TestFileCompare(std::string_view params, const AgentSettings& /*settings*/, Reply& reply) {
    std::string_view mode = GetLine(params, 1);
    int32_t macroLine = mode == "1" ? 12 : mode == "2" ? 9 : 11;
    VyString path1 = PathLine(params, 2, macroLine);
    struct stat status1 {};
    // The file is looked for before the mode is checked, so a wrong mode may go unnoticed.
    if (!StatRegular(path1, status1)) return reply.Start("301", kMissing);
    if (mode == "1") return CompareFiles(params, path1, status1, reply);
    if (mode == "2") return FindContent(params, path1, reply);
    if (mode != "3") return reply.Start("501", "Wrong parameter");
    AppendResult(FindInFile(path1, GetLine(params, 3), FlagLine(params, 4), FlagLine(params, 5)),
                 reply);
}

}  // namespace zot
