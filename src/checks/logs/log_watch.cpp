#include "checks/logs/log_watch.h"

#include "base/escaping.h"
#include "base/numbers.h"
#include "protocol/request_text.h"

namespace zot {
namespace {

void AppendState(const LogScanFindings& found, Reply& reply) {
    reply.AppendInt64(found.state.position);
    reply.AppendInt64(found.state.lastSize);
    reply.AppendInt64(found.state.lastModified);
    reply.AppendInt64(found.fileSize);
}

}  // namespace

bool NumberLine(std::string_view params, int32_t line) { return ToInt(GetLine(params, line)) != 0; }

bool ReadState(std::string_view params, int32_t line, LogScanState& state) {
    return ParseInt64(GetLine(params, line), state.position) &&
           ParseInt64(GetLine(params, line + 1), state.lastSize) &&
           ParseInt64(GetLine(params, line + 2), state.lastModified);
}

bool AnswerScan(const LogWatch& watch, size_t lineLimit, bool& byFirst, Reply& reply) {
    LogScanFindings found = ScanTextLog(watch.path, watch.matchers, watch.findAll, watch.state);
    if (found.result == -1) {
        reply.Start("301", Escape(found.errorText));
        return false;
    }
    reply.Start("200");
    reply.AppendInt64(found.result);
    reply.AppendLine(found.foundLine.View().substr(0, lineLimit));
    byFirst = found.byFirst;
    if (watch.findAll) {
        reply.AppendFlag(false);
        AppendState(found, reply);
        return true;
    }
    LogScanFindings further = ScanTextLog(watch.path, watch.matchers, false, found.state);
    bool more = further.result > 0;
    reply.AppendFlag(more);
    // While more matches follow, the server asks again from after this one; otherwise from the end.
    AppendState(more ? found : further, reply);
    return true;
}

}  // namespace zot
