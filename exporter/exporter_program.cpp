#include "exporter/exporter_program.h"

#include <pthread.h>
#include <signal.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "base/descriptor_limit.h"
#include "client/engine.h"
#include "client/text.h"
#include "commands/agent_info.h"
#include "exporter/basic_auth.h"
#include "exporter/fleet.h"
#include "exporter/http_server.h"
#include "exporter/last_probes.h"
#include "exporter/listen_address.h"
#include "exporter/log_counter.h"
#include "exporter/own_metrics.h"
#include "exporter/site.h"
#include "exporter/tls_keys.h"
#include "exporter/web_config.h"
#include "exporter/worker.h"

namespace zot::exporter {
namespace {

constexpr size_t kRequestsAtOnce = 1024;
constexpr size_t kRequestsPerHost = 4;
constexpr int kOwnDescriptors = 64;  // files, streams, wake-ups
constexpr int kExitListen = 4;       // as the agent

struct CommandLine {
    std::string configFile = "/etc/zot/zot-exporter.yml";
    std::string listenAddress = "127.0.0.1:9965";
    std::string webConfigFile{};  // empty: no protection
    bool checkOnly = false;
};

// Returns whether to go on; otherwise `status` is the one to end with.
bool ReadCommandLine(int argc, const char* const* argv, CommandLine& line, int& status) {
    CLI::App app("Asks zot agents for Prometheus.", "zot-exporter");
    app.add_option("--config.file", line.configFile, "the configuration")
        ->type_name("FILE")
        ->capture_default_str();
    app.add_option("--web.listen-address", line.listenAddress,
                   "where to listen; without an address, on all of them")
        ->type_name("ADDRESS:PORT")
        ->capture_default_str();
    app.add_option("--web.config.file", line.webConfigFile,
                   "TLS and users of this port, as for Prometheus itself")
        ->type_name("FILE");
    app.add_flag("--config.check", line.checkOnly, "check the configuration and end");
    app.set_version_flag("--version", std::string("zot-exporter ") + kAgentVersion);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        status = app.exit(error) == 0 ? 0 : 2;
        return false;
    }
    return true;
}

void Tell(std::string_view text) { std::cerr << "zot-exporter: " << text << std::endl; }

void TellAll(const std::vector<std::string>& mistakes) {
    for (const std::string& mistake : mistakes) Tell(mistake);
}

sigset_t AwaitedSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (int signal : {SIGHUP, SIGINT, SIGTERM}) sigaddset(&signals, signal);
    return signals;
}

// How many descriptors requests and connections may each have.
size_t HalfOfDescriptors() {
    constexpr int kUsual = 1024;  // where the system does not tell
    int limit = RaiseDescriptorLimit();
    if (limit <= 0) limit = kUsual;
    return static_cast<size_t>(std::max(limit - kOwnDescriptors, 2) / 2);
}

// Reads the file, if there is one, and the certificate that it names.
bool ReadWeb(const CommandLine& line, WebConfig& web, std::vector<std::string>& mistakes) {
    if (line.webConfigFile.empty()) return true;
    if (!ReadWebConfig(line.webConfigFile, web, mistakes)) return false;
    std::string error;
    if (!web.tls || LoadTlsKeys(*web.tls, error)) return true;
    mistakes.push_back(error);
    return false;
}

// Everything that runs. What is further down uses what is above, and ends before it.
class Service {
  public:
    Service(const CommandLine& line, std::shared_ptr<const Fleet> fleet, size_t descriptors)
        : line_(line),
          fleets_(line.configFile, std::move(fleet)),
          engine_({.atOnce = kRequestsAtOnce, .perHost = kRequestsPerHost, .sockets = descriptors}),
          connections_(static_cast<unsigned>(descriptors)) {}
    ~Service();

    // REQUIRES the web configuration that the command line names.
    bool Listen(const WebConfig& web, std::string& error);
    void Reload();

  private:
    void Serve(const HttpRequest& request, const Answerer& answer);
    bool ReadAgain(std::vector<std::string>& mistakes);

    const CommandLine& line_;
    FleetHolder fleets_;
    LastProbes probes_;
    OwnMetrics metrics_;
    client::Engine engine_;
    unsigned connections_;
    Worker files_;
    LogCounter logs_{engine_, files_};
    std::unique_ptr<HttpServer> server_;
    Site site_{{fleets_, engine_, logs_, files_, probes_, metrics_,
                [this] { return server_->OpenConnections(); },
                [this](std::vector<std::string>& mistakes) { return ReadAgain(mistakes); }}};
    BasicAuth auth_;
    std::thread loop_;
};

Service::~Service() {
    if (server_) server_->Stop();
    if (!loop_.joinable()) return;
    engine_.Stop();
    loop_.join();
}

bool Service::Listen(const WebConfig& web, std::string& error) {
    std::string bound;
    UniqueFd listener = ListenAt(line_.listenAddress, bound, error);
    if (!listener) return false;
    auth_.SetUsers(web.users);
    if (web.tls) UseTlsKeys();
    loop_ = std::thread([this] { engine_.RunUntilStopped(); });
    server_ =
        HttpServer::Start({.listener = std::move(listener),
                           .handler = [this](const HttpRequest& request,
                                             const Answerer& answer) { Serve(request, answer); },
                           .maxConnections = connections_,
                           .headers = web.headers,
                           .tls = web.tls},
                          error);
    if (!server_) return false;
    Tell(client::Concat(
        {kAgentVersion, " listens at http", web.tls ? "s" : "", "://", bound, ", ",
         client::Count(static_cast<double>(fleets_.Current().fleet->inventory.Hosts().size()),
                       "host", "hosts")}));
    return true;
}

void Service::Serve(const HttpRequest& request, const Answerer& answer) {
    auth_.Check(request, [this, request, answer](bool good) {
        if (good) return site_.Serve(request, answer);
        metrics_.LoginRefused();
        answer({401,
                "a user and a password are needed\n",
                kTextType,
                {{"WWW-Authenticate", "Basic realm=\"zot-exporter\", charset=\"UTF-8\""}}});
    });
}

bool Service::ReadAgain(std::vector<std::string>& mistakes) {
    WebConfig web;
    bool webGood = ReadWeb(line_, web, mistakes);
    bool good = fleets_.Reload(webGood, mistakes);
    if (!good) return false;
    auth_.SetUsers(web.users);
    if (web.tls) UseTlsKeys();
    return true;
}

void Service::Reload() {
    files_.Do([this] {
        std::vector<std::string> mistakes;
        bool good = ReadAgain(mistakes);
        TellAll(mistakes);
        Tell(good ? "configuration reloaded" : "the old configuration stays in force");
    });
}

int Serve(const CommandLine& line, std::shared_ptr<const Fleet> fleet, const WebConfig& web) {
    // Before the first thread: all of them leave the signals to this one.
    const sigset_t signals = AwaitedSignals();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    signal(SIGPIPE, SIG_IGN);
    std::string error;
    Service service(line, std::move(fleet), HalfOfDescriptors());
    if (!service.Listen(web, error)) {
        Tell(error);
        return kExitListen;
    }
    for (int signal = 0; sigwait(&signals, &signal) == 0 && signal == SIGHUP;) service.Reload();
    return 0;
}

}  // namespace

int RunExporter(int argc, const char* const* argv) {
    CommandLine line;
    int status = 0;
    if (!ReadCommandLine(argc, argv, line, status)) return status;
    std::vector<std::string> mistakes;
    std::shared_ptr<const Fleet> fleet = LoadFleet(line.configFile, mistakes);
    WebConfig web;
    bool webGood = ReadWeb(line, web, mistakes);
    TellAll(mistakes);
    if (!fleet || !webGood) return 1;
    if (!line.checkOnly) return Serve(line, std::move(fleet), web);
    std::cout << line.configFile << ": good, "
              << client::Count(static_cast<double>(fleet->inventory.Hosts().size()), "host",
                               "hosts")
              << ", "
              << client::Count(static_cast<double>(fleet->config.modules.size()), "module",
                               "modules")
              << std::endl;
    return std::cout ? 0 : 1;
}

}  // namespace zot::exporter
