// Any bytes sent to the port of an exporter that runs: it replies in HTTP or not at all, goes on
// serving others, and keeps no connection that was hung up on.
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <thread>

#include "exporter/http_server.h"
#include "exporter/listen_address.h"
#include "fuzz/exporter_site.h"

namespace {

using namespace zot;

struct RunningExporter : fuzz::ExporterSite {
    RunningExporter() : ExporterSite({.perHost = 4}) {
        std::string error;
        UniqueFd listener = exporter::ListenAt("127.0.0.1:0", bound, error);
        fuzz::Require(listener && error.empty());
        server = exporter::HttpServer::Start(
            {.listener = std::move(listener),
             .handler = [this](const exporter::HttpRequest& request,
                               const exporter::Answerer& answer) { site.Serve(request, answer); }},
            error);
        fuzz::Require(server != nullptr);
    }
    ~RunningExporter() {
        server->Stop();
        engine.Stop();
        loop.join();
    }

    std::string bound;
    std::unique_ptr<exporter::HttpServer> server;
    std::thread loop{[this] { engine.RunUntilStopped(); }};
};

UniqueFd Connect(uint16_t port) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    // Thousands of connections a second use up the ports of this end for a moment.
    for (int i = 0; i < 1000; ++i) {
        UniqueFd fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        if (connect(fd.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) {
            return fd;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    fuzz::Require(false);
    return UniqueFd();
}

// What arrives up to the end, or until nothing has come for so long.
std::string Exchange(int fd, std::string_view request, int patienceMs) {
    std::string reply;
    char buffer[65536];
    pollfd entry = {fd, POLLIN, 0};
    send(fd, request.data(), request.size(), MSG_NOSIGNAL);
    while (poll(&entry, 1, patienceMs) > 0) {
        const ssize_t got = recv(fd, buffer, sizeof buffer, 0);
        if (got <= 0) break;
        reply.append(buffer, static_cast<size_t>(got));
    }
    return reply;
}

constexpr std::string_view kHealthy =
    "GET /-/healthy HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n";

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr int kSilenceMs = 5, kPatienceMs = 10000, kRound = 64;
    static RunningExporter exporter;
    static const auto port =
        static_cast<uint16_t>(std::stoi(exporter.bound.substr(exporter.bound.find(':') + 1)));
    static int count = 0;
    // A second request follows, and ends the first where that asks for more.
    std::string bytes(reinterpret_cast<const char*>(data), size);
    UniqueFd fd = Connect(port);
    const std::string reply =
        Exchange(fd.Get(), bytes.append("\r\n\r\n").append(kHealthy), kSilenceMs);
    fuzz::Require(reply.empty() || reply.starts_with("HTTP/1."));
    // Hangs up at once, so that the exporter keeps nothing for the next one.
    const linger none = {1, 0};
    setsockopt(fd.Get(), SOL_SOCKET, SO_LINGER, &none, sizeof none);
    fd.Reset();
    if (++count % kRound != 0) return 0;
    const std::string healthy = Exchange(Connect(port).Get(), kHealthy, kPatienceMs);
    fuzz::Require(healthy.starts_with("HTTP/1.1 200 ") && healthy.ends_with("\r\n\r\nhealthy\n"));
    for (int waited = 0; exporter.server->OpenConnections() > 0; ++waited) {
        fuzz::Require(waited < kPatienceMs);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return 0;
}
