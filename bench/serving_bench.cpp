// Whole requests over loopback to the detached agent beside a bare echo server that starts a thread
// for each connection and makes the same socket calls: what is left between the two is the agent's
// own work.
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "base/owners.h"
#include "base/platform.h"
#include "base/twofish.h"
#include "client/request_packet.h"
#include "ratio.h"

namespace zot {
namespace {

constexpr char kPassword[] = "password";
constexpr int kBacklog = 512;

uint16_t agentPort;
uint16_t echoPort;
std::string packet;

sockaddr_in Loopback(uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

UniqueFd BoundSocket(uint16_t& port) {
    UniqueFd fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address = Loopback(0);
    socklen_t size = sizeof address;
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    if (bind(fd.Get(), generic, size) != 0 || getsockname(fd.Get(), generic, &size) != 0) abort();
    port = ntohs(address.sin_port);
    return fd;
}

void* Echo(void* argument) {
    UniqueFd peer(static_cast<int>(reinterpret_cast<intptr_t>(argument)));
    char buffer[1024];
    pollfd descriptor = {peer.Get(), POLLIN, 0};
    if (poll(&descriptor, 1, 4000) == 1) {
        ssize_t received = recv(peer.Get(), buffer, sizeof buffer, 0);
        if (received > 0) send(peer.Get(), buffer, static_cast<size_t>(received), MSG_NOSIGNAL);
    }
    shutdown(peer.Get(), SHUT_RDWR);
    return nullptr;
}

[[noreturn]] void ServeEcho(UniqueFd listener) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_attr_setstacksize(&attributes, size_t{256} * 1024);
    for (;;) {
        pollfd descriptor = {listener.Get(), POLLIN, 0};
        if (poll(&descriptor, 1, 1000) != 1) continue;
        int peer = accept4(listener.Get(), nullptr, nullptr, SOCK_CLOEXEC);
        pthread_t thread;
        if (peer >= 0) {
            pthread_create(&thread, &attributes, Echo, reinterpret_cast<void*>(intptr_t{peer}));
        }
    }
}

// Sends the packet, reads until the peer closes. Returns the number of bytes received.
size_t OneRequest(uint16_t port) {
    UniqueFd fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address = Loopback(port);
    if (connect(fd.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) return 0;
    send(fd.Get(), packet.data(), packet.size(), MSG_NOSIGNAL);
    char buffer[4096];
    size_t total = 0;
    for (ssize_t n; (n = recv(fd.Get(), buffer, sizeof buffer, 0)) > 0;) {
        total += static_cast<size_t>(n);
    }
    return total;
}

void Requests(benchmark::State& state, uint16_t port) {
    for (auto _ : state) {
        if (OneRequest(port) == 0) {
            state.SkipWithError("no reply");
            return;
        }
    }
    state.SetItemsProcessed(state.iterations());
}

void RequestsAgent(benchmark::State& state) { Requests(state, agentPort); }
void RequestsEcho(benchmark::State& state) { Requests(state, echoPort); }
BENCHMARK(RequestsAgent)->UseRealTime();
BENCHMARK(RequestsEcho)->UseRealTime();

pid_t StartEcho() {
    UniqueFd listener = BoundSocket(echoPort);
    if (listen(listener.Get(), kBacklog) != 0) abort();
    pid_t child = fork();
    if (child == 0) ServeEcho(std::move(listener));
    return child;
}

void StartAgent(const std::string& folder) {
    BoundSocket(agentPort);
    std::string config = folder + "/zot.cfg";
    std::ofstream(config) << "host=127.0.0.1\nport=" << agentPort << "\npassword=" << kPassword
                          << "\nzotpath=" ZOT_BUILD_DIR "/zot\ntmpdir=" << folder << "\n";
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, 1, "/dev/null", O_WRONLY, 0);
    char program[] = ZOT_BUILD_DIR "/zot";
    char mode[] = "-d";
    char* arguments[] = {program, mode, config.data(), nullptr};
    pid_t child = 0;
    if (posix_spawn(&child, program, &files, nullptr, arguments, ProcessEnvironment()) != 0)
        abort();
    waitpid(child, nullptr, 0);
    for (int i = 0; i < 500 && OneRequest(agentPort) == 0; ++i) usleep(10000);
}

const std::vector<Ratio> kRatios = {
    {"requests per second / bare echo server", "RequestsAgent", "RequestsEcho", 0.7},
};

}  // namespace
}  // namespace zot

int main(int argc, char** argv) {
    zot::TwofishInitialise();
    // A short question with a short answer.
    zot::packet = zot::client::BuildRequest(zot::kPassword, "0123456789abcdef", "TEST-SNMP\n\r");
    char folder[] = "/tmp/zot-bench-XXXXXX";
    if (mkdtemp(folder) == nullptr) return 2;
    pid_t echo = zot::StartEcho();
    zot::StartAgent(folder);
    int result = zot::RunWithRatios(argc, argv, zot::kRatios);
    kill(echo, SIGKILL);
    waitpid(echo, nullptr, 0);
    zot::packet = zot::client::BuildRequest(zot::kPassword, "0123456789abcdef", "QUIT\n\r");
    zot::OneRequest(zot::agentPort);
    unlink((std::string(folder) + "/zot.cfg").c_str());
    rmdir(folder);
    return result;
}
