#include "checks/files/count_files.h"
#include "checks/files/file_tests.h"
#include "checks/files/parameters.h"

namespace zot {

void TestCountFiles(std::string_view params, const AgentSettings& settings, Reply& reply) {
    if (!settings.testCountFiles) return reply.Start("600", "test is not allowed");
    VyString folder = PathLine(params, 1, 11);
    // As unsigned, so that a negative mode is refused too.
    auto mode = static_cast<uint32_t>(ToInt(GetLine(params, 4)));
    int32_t value = 0;
    if (mode >= kCountModes || !ParseInt(GetLine(params, 5), value)) {
        return reply.Start("501", "Wrong parameter");
    }
    int64_t count = CountFiles(folder, GetLine(params, 2), FlagLine(params, 3),
                               static_cast<CountMode>(mode), value);
    if (count < 0) return reply.Start("301", "Folder doesn`t exist or access denied");
    reply.Start("200");
    reply.AppendInt(static_cast<int32_t>(count));
}

}  // namespace zot
