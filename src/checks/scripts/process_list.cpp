#include <string>

#include "checks/scripts/configured_script.h"
#include "checks/scripts/run_process.h"
#include "checks/scripts/script_checks.h"
#include "checks/scripts/script_output.h"
#include "checks/scripts/temp_name.h"
#include "protocol/request_text.h"

namespace zot {
namespace {

// Lets the shell run `command` with all its output going to `file`, and opens the result.
// Otherwise fills the reply and returns false.
bool RunForOutput(std::string_view command, const AgentSettings& settings, TempFile& file,
                  ScriptOutput& output, Reply& reply) {
    constexpr std::string_view kNoResults = "Cannot get script results";
    TempFile::Result created = file.Create(settings.tmpDir, "tmpPzot-");
    if (created == TempFile::Result::kNoName) {
        reply.Start("301", "cannot get temp file");
        return false;
    }
    // The file holds its own name until the shell opens it for the script. If the name is still
    // there, the shell did not get as far as that (a stray quote in the command), and there are no
    // results, just as if the file were missing.
    const std::string_view untouched = file.Path();
    if (created == TempFile::Result::kNotCreated || !file.Write(untouched)) {
        reply.Start("301", kNoResults);
        return false;
    }
    file.Close();
    VyString line = command;
    for (std::string_view redirection : {" 1>", " 2>", " 3>"}) {
        line.Append(redirection);
        line.Append(file.Path());
    }
    if (!RunShell(line.Terminate(), settings.tmpDir)) {
        reply.Start("301", "Cannot execute script");
        return false;
    }
    std::string_view first;
    if (!output.Open(file.Path()) || (output.NextLine(first) && first == untouched)) {
        reply.Start("301", kNoResults);
        return false;
    }
    output.Rewind();
    return true;
}

}  // namespace

void TestProcess(std::string_view params, const AgentSettings& settings, Reply& reply) {
    if (!settings.testProcess) return reply.Start("600", "test is not allowed");
    if (!ScriptIsUsable(settings.procCntScript, "ProcCnt", reply)) return;
    std::string_view name = GetLine(params, 2);
    if (name.empty()) return reply.Start("501", "Name of the process is not specified");
    VyString command = settings.procCntScript;
    command.Append(' ');
    // The shell sees the name as it comes: quotes, patterns and operators in it take effect.
    command.Append(name);
    TempFile file;
    ScriptOutput output;
    if (!RunForOutput(command, settings, file, output, reply)) return;
    int count = 0;
    if (!output.ReadInt(count)) return reply.Start("301", "Script error");
    reply.Start("200");
    reply.AppendInt(count);
}

void GetProcessesList(std::string_view /*params*/, const AgentSettings& settings, Reply& reply) {
    if (!settings.testProcess) return reply.Start("600", "test is not allowed");
    if (!ScriptIsUsable(settings.procListScript, "ProcList", reply)) return;
    TempFile file;
    ScriptOutput output;
    if (!RunForOutput(settings.procListScript, settings, file, output, reply)) return;
    std::string list;
    for (std::string_view line; output.NextLine(line);) {
        if (line.ends_with('\n')) line.remove_suffix(1);
        list.append(line).append("\r\n");
    }
    reply.Start("200");
    reply.AppendLine(list, Escaping::kLineBreaks);
}

}  // namespace zot
