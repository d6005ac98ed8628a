#include "checks/scripts/configured_script.h"

#include <sys/stat.h>

#include <chrono>
#include <thread>

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

}  // namespace zot
