#include "checks/scripts/configured_script.h"

#include <sys/stat.h>

#include <chrono>
#include <initializer_list>
#include <string>
#include <thread>

#include "checks/scripts/run_process.h"

namespace zot {

bool ScriptIsUsable(const VyString& script, std::string_view label, Reply& reply) {
    if (script.Empty()) {
        reply.Start("301", VyString::Concat(label, " script is not speified"));
        return false;
    }
    VyString path = script;
    struct stat info {};
    if (stat(path.Terminate(), &info) != 0 || !S_ISREG(info.st_mode)) {
        reply.Start("301", VyString::Concat(label, " script doesn't exist"));
        return false;
    }
    return true;
}

void PauseBeforeScript(const AgentSettings& settings) {
    if (settings.delayForScripts <= 0) return;
    std::this_thread::sleep_for(std::chrono::microseconds(settings.delayForScripts));
}

bool RunForOutput(std::string_view command, const AgentSettings& settings, TempFile& file,
                  ScriptOutput& output, Reply& reply) {
    constexpr std::string_view kNoResults = "Cannot get script results";
    TempFile::Result created = file.Create(settings.tmpDir, "tmpPzot-");
    if (created == TempFile::Result::kNoName) {
        reply.Start("301", "cannot get temp file");
        return false;
    }
    // The file holds its own name until the shell opens it for the script. If the name is still
    // there the shell did not get that far (a stray quote in the command), and there are no
    // results, as if the file were missing.
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

}  // namespace zot
