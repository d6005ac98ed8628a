#include "tests/support/exporter_process.h"

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <cstdio>
#include <stdexcept>

#include "base/platform/system.h"
#include "tests/docs/pages.h"
#include "tests/support/agent_process.h"

namespace zot::test {

std::string OutputOf(const std::string& command) {
    std::string output;
    FILE* pipe = popen(("(" + command + ") 2>&1").c_str(), "re");
    if (!pipe) return output;
    char buffer[4096];
    while (size_t got = fread(buffer, 1, sizeof buffer, pipe)) output.append(buffer, got);
    pclose(pipe);
    return output;
}

ExporterProcess::ExporterProcess(std::string_view hosts, std::string_view config,
                                 std::string arguments, const std::string& address) {
    dir_.Write("hosts", hosts);
    std::string command = "cd '" + dir_.Path() +
                          "' && exec " ZOT_BUILD_DIR "/zot-exporter --config.file=" +
                          dir_.Write("exporter.yml", config) + " --web.listen-address=" + address +
                          " " + arguments + " 2>stderr";
    char shell[] = "sh", option[] = "-c";
    char* const words[] = {shell, option, command.data(), nullptr};
    if (posix_spawnp(&child_, "sh", nullptr, nullptr, words, ProcessEnvironment()) != 0) {
        throw std::runtime_error("cannot start the exporter");
    }
    WaitUntil([this] {
        auto found = Matches(Told(), "listens at (https?://[^,]+), ");
        if (!found.empty()) url_ = found[0][1];
        return !url_.empty() || waitpid(child_, nullptr, WNOHANG) == child_;
    });
    if (url_.empty()) throw std::runtime_error("the exporter does not listen: " + Told());
}

ExporterProcess::~ExporterProcess() { Stop(); }

uint16_t ExporterProcess::Port() const {
    return static_cast<uint16_t>(std::stoi(url_.substr(url_.rfind(':') + 1)));
}

std::string ExporterProcess::Get(std::string_view path, std::string_view options) const {
    return OutputOf("curl -s -g --max-time 60 -w '%{http_code}\\n' " + std::string(options) + " '" +
                    url_ + std::string(path) + "'");
}

int ExporterProcess::Stop() {
    if (child_ == 0) return 0;
    int status = 0;
    kill(child_, SIGTERM);
    if (!WaitUntil([&] { return waitpid(child_, &status, WNOHANG) == child_; })) {
        kill(child_, SIGKILL);
        waitpid(child_, &status, 0);
    }
    child_ = 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

}  // namespace zot::test
