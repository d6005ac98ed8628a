// The real exporter for the system tests: started on a free port of the loopback interface, asked
// with curl, and ended with the test.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

#include "tests/support/temp_dir.h"

namespace zot::test {

// What a command prints on both streams.
std::string OutputOf(const std::string& command);

class ExporterProcess {
  public:
    // Writes the configuration beside a list of hosts and starts the exporter with further
    // arguments. Throws when it does not come to listen.
    ExporterProcess(std::string_view hosts, std::string_view config, std::string arguments = "",
                    const std::string& address = "127.0.0.1:0");
    ~ExporterProcess();
    ExporterProcess(const ExporterProcess&) = delete;
    ExporterProcess& operator=(const ExporterProcess&) = delete;

    const TempDir& Dir() const { return dir_; }
    const std::string& Url() const { return url_; }
    uint16_t Port() const;
    pid_t Pid() const { return child_; }
    // What it has told so far.
    std::string Told() const { return ReadFile(dir_ / "stderr"); }
    // The reply's body, then a line with its status. `options` are curl's.
    std::string Get(std::string_view path, std::string_view options = "") const;
    // Ends it, and returns its exit status, or minus the signal that ended it.
    int Stop();

  private:
    TempDir dir_;
    pid_t child_ = 0;
    std::string url_;
};

}  // namespace zot::test
