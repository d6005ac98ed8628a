#include "checks/logs/log_watch.h"

#include "protocol/request_text.h"

namespace zot {
namespace {

void AppendState(const LogScanState& state, int64_t fileSize, Reply& reply) {
    reply.AppendInt64(state.position);
    reply.AppendInt64(state.lastSize);
    reply.AppendInt64(state.lastModified);
    reply.AppendInt64(fileSize);
}

}  // namespace

bool NumberLine(std::string_view params, int32_t line) { return ToInt(GetLine(params, line)) != 0; }

bool ReadState(std::string_view params, int32_t line, LogScanState& state) {
    return ParseInt64(GetLine(params, line), state.position) &&
           ParseInt64(GetLine(params, line + 1), state.lastSize) &&
           ParseInt64(GetLine(params, line + 2), state.lastModified);
}

bool AnswerScan(LogWatch& watch, size_t lineLimit, bool& byFirst, Reply& reply) {
    LogScanFindings found;
    int64_t result = ScanTextLog(watch.path, watch.matchers, watch.findAll, watch.state, found);
    if (result == -1) {
        reply.Start("301", Escape(found.errorText));
        return false;
    }
    reply.Start("200");
    reply.AppendInt64(result);
    reply.AppendLine(found.foundLine.View().substr(0, lineLimit));
    byFirst = found.byFirst;
    LogScanState next = watch.state;
    LogScanFindings further;
    bool more = !watch.findAll && ScanTextLog(watch.path, watch.matchers, false, next, further) > 0;
    reply.AppendFlag(more);
    // While more follow, the server asks again from behind this match; otherwise from the end.
    if (more || watch.findAll) {
        AppendState(watch.state, found.fileSize, reply);
    } else {
        AppendState(next, further.fileSize, reply);
    }
    return true;
}

}  // namespace zot
