// Which process stands for the service: systemd watches the one that says so. After a start and a
// restart that is the agent, once it listens, and while an upgrade runs its guard. An agent too old
// to say so is found by its pid file.
//
// Of a process that is not its own child systemd does not wait for the end when it stops a service.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <string_view>

namespace zot {

class ServiceManager {
  public:
    // Finds the manager's socket in the environment. Without one nothing is said.
    ServiceManager();

    bool IsThere() const noexcept { return size_ != 0; }
    // The calling process is the service's main one from now on. Async-signal-safe.
    void ClaimService() const noexcept { Tell("MAINPID="); }
    // And it is in service.
    void ReportReady() const noexcept { Tell("READY=1\nMAINPID="); }

  private:
    void Tell(std::string_view words) const noexcept;

    sockaddr_un address_{};
    socklen_t size_ = 0;  // 0: nobody to tell
};

}  // namespace zot
