#include <errno.h>
#include <sys/time.h>

#include <cstdint>
#include <string_view>

#include "base/platform/system.h"
#include "base/vystring.h"
#include "checks/files/file_checks.h"
#include "config/settings.h"
#include "protocol/reply.h"
#include "protocol/request_text.h"

namespace zot {

void TestUnc(std::string_view params, const AgentSettings& /*settings*/, Reply& reply) {
    std::string_view line = GetLine(params, 1);
    // Servers append another system's separator to the paths of network shares.
    if (!line.empty() && line.back() == '\\') line.remove_suffix(1);
    if (line.empty()) return reply.Start("501", "Path not specified");

    VyString path(line);
    int64_t total = 0;
    int64_t free = 0;
    int64_t available = 0;
    timeval before{};
    timeval after{};
    gettimeofday(&before, nullptr);
    bool known = FileSystemSpace(path.Terminate(), total, free, available);
    int error = errno;
    gettimeofday(&after, nullptr);
    if (!known) {
        reply.Start("301");
        char text[256];
        if (SystemErrorText(error, text, sizeof text)) {
            reply.AppendLine(text, Escaping::kLineBreaks);
        }
        return;
    }
    reply.Start("200");
    reply.AppendInt64(total);
    reply.AppendInt64(free);
    reply.AppendInt64(available);
    reply.AppendInt(static_cast<int32_t>((after.tv_sec - before.tv_sec) * 1000 +
                                         (after.tv_usec - before.tv_usec) / 1000));
}

}  // namespace zot
