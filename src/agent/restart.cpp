#include "agent/restart.h"

#include <cstdio>
#include <string>

#include "agent/guard.h"
#include "agent/handover.h"
#include "base/loose_ends.h"
#include "base/sockets.h"
#include "base/vystring.h"
#include "config/settings.h"

namespace zot {

void RestartProgram(AgentServices& services, const StartArguments& arguments, UniqueFd listener) {
    VyString path = services.settings.Snapshot()->agentPath;
    UniqueFd reserve;
    if (listener && TakesHandOver(path.Terminate())) reserve = ReservePort(listener.Get());
    listener.Reset();
    EndLooseEnds();
    HandOverEnvironment environment(arguments.envp, reserve.Get(), -1);
    if (reserve) LeaveOpen(reserve.Get());
    std::fflush(nullptr);
    ExecuteImage(path.Terminate(), arguments.argv,
                 reserve ? environment.Variables() : arguments.envp);
}

void RunUpgrade(AgentServices& services, const StartArguments& arguments, UpgradeOrder& order,
                const UniqueFd& reserve) {
    ForgetFile(order.modulePath);
    ForgetFile(order.scriptPath);
    EndLooseEnds();
    std::fflush(nullptr);
    UpgradeGuard guard(services, arguments, order, reserve);
    if (guard.Start()) {
        ExecuteImage(order.scriptPath.c_str(), arguments.argv, guard.Environment());
        guard.CallOff();
    }
    order.RemoveFiles();
}

}  // namespace zot
