#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "base/escaping.h"
#include "base/numbers.h"
#include "base/vystring.h"
#include "checks/scripts/argument_list.h"
#include "checks/scripts/child_process.h"
#include "checks/scripts/configured_script.h"
#include "checks/scripts/run_process.h"
#include "checks/scripts/script_checks.h"
#include "checks/scripts/script_output.h"
#include "checks/scripts/temp_name.h"
#include "config/settings.h"
#include "protocol/reply.h"
#include "protocol/request_text.h"

namespace zot {
namespace {

constexpr std::string_view kResultMark = "scriptres:";

struct ScriptRequest {
    std::string_view commandTemplate;
    VyString script;
    VyString parameters;
    int64_t timeoutMs = kNoTimeout;
    int32_t lineBudget = 0;
};

ScriptRequest ReadRequest(std::string_view params) {
    ScriptRequest request;
    request.commandTemplate = GetLine(params, 1);
    request.script = Unescape(GetLine(params, 2)).ReplaceAll("\r\n", "\n", true);
    request.parameters = Unescape(GetLine(params, 3));
    request.parameters.Trim();
    request.timeoutMs = int64_t{ToInt(GetLine(params, 4))} * 1000;
    request.lineBudget = ToInt(GetLine(params, 5));
    return request;
}

// A command line is cut into a limited number of arguments of limited length. After this many bytes
// that are not blanks nothing counts any more, and no argument holds a longer gap than all
// arguments together have room.
constexpr size_t kUsedOfLine = 4 * ArgumentList::kArea;
constexpr size_t kLongestGap = ArgumentList::kArea;
static_assert(kUsedOfLine > 2 * ArgumentList::kArea + size_t{2} * ArgumentList::kMaxArguments);

bool IsBlank(char c) { return c == ' ' || c == '\t'; }

// What a value can add to a command line; more is not worth copying.
VyString UsedPart(std::string_view value) {
    VyString used;
    size_t gap = 0;
    size_t filled = 0;
    for (char c : value) {
        gap = IsBlank(c) ? gap + 1 : 0;
        if (gap == 0 && ++filled > kUsedOfLine) break;
        if (gap <= kLongestGap) used.Append(c);
    }
    return used;
}

// Replaces the marker, in any case. The search goes on only while more text is left than the length
// of a marker, so "%script%" alone, or a marker at the end right after a replaced one, stays as it
// is; templates have been written around that. Stops where the replacements, each of which leaves
// `filled` bytes that are not blanks, are more than a command line takes: many markers times a long
// value would not fit into memory.
VyString FillIn(std::string_view text, std::string_view marker, std::string_view value,
                size_t filled) {
    VyString result;
    size_t rest = kUsedOfLine;
    while (text.size() > marker.size()) {
        int64_t at = FindInBufferNoCase(text, marker);
        if (at == 0) break;
        if (rest == 0) return result;
        rest -= std::min(rest, filled);
        result.Append(text.substr(0, static_cast<size_t>(at - 1)));
        result.Append(value);
        text.remove_prefix(static_cast<size_t>(at - 1) + marker.size());
    }
    result.Append(text);
    return result;
}

// Writes the script into a new executable file; returns nullptr or a message that says why it
// failed.
const char* WriteScript(const AgentSettings& settings, std::string_view text, TempFile& file) {
    constexpr unsigned kScriptMode = 0775;
    TempFile::Result created = file.Create(settings.tmpDir);
    if (created == TempFile::Result::kNoName) return "Cannot get temp file";
    if (created == TempFile::Result::kNotCreated) return "Cannot create temp file";
    if (!file.Write(text)) return "cannot create temp file";
    if (!file.SetMode(kScriptMode)) return "Cannot set exec flag for script";
    // A file that is open for writing cannot be executed.
    file.Close();
    return nullptr;
}

// Reads the result line (the first marked one, or else the last) and as many lines of output as the
// budget allows.
void ReadOutput(ScriptOutput& output, int32_t budget, VyString& result, std::string& lines) {
    bool marked = false;
    std::string_view piece;
    while ((budget > 0 || !marked) && output.NextLine(piece)) {
        std::string_view line = TrimView(piece);
        if (line.empty()) continue;
        if (budget > 0) {
            lines.append(line).append("\r\n");
            --budget;
        }
        if (!marked) result = line;
        marked = marked || line.starts_with(kResultMark);
    }
}

}  // namespace

void TestShellScript(std::string_view params, const AgentSettings& settings, Reply& reply) {
    const ScriptRequest request = ReadRequest(params);
    TempFile script;
    if (const char* error = WriteScript(settings, request.script, script)) {
        return reply.Start("301", error);
    }
    TempFile file;
    TempFile::Result created = file.Create(settings.tmpDir);
    if (created == TempFile::Result::kNoName) return reply.Start("301", "Cannot get temp file");
    file.Close();
    if (created == TempFile::Result::kNotCreated) {
        return reply.Start("301", "Cannot get script results");
    }
    // However the marker of the second pass cuts into a path, its last byte stays.
    VyString command = FillIn(request.commandTemplate, "%script%", script.Path(), 1);
    const VyString parameters = UsedPart(request.parameters);
    const std::string_view value = parameters;
    auto filled = std::count_if(value.begin(), value.end(), [](char c) { return !IsBlank(c); });
    command = FillIn(command, "%params%", value, static_cast<size_t>(filled));
    PauseBeforeScript(settings);
    ChildOptions options = {settings.tmpDir, {}, file.Path(), file.Path(), file.Path()};
    int exitCode = 0;
    VyString errorText;
    if (!RunProcess(command, options, request.timeoutMs, exitCode, errorText)) {
        return reply.Start("301", VyString::Concat("Script execution error: ", errorText));
    }
    ScriptOutput output;
    if (!output.Open(file.Path())) return reply.Start("301", "Cannot get script results");
    VyString result;
    std::string lines;
    ReadOutput(output, request.lineBudget, result, lines);
    reply.Start("200");
    reply.AppendLine(result, Escaping::kLineBreaks);
    reply.AppendLine(lines, Escaping::kLineBreaks);
}

}  // namespace zot
