// The least a server can do: one thread accepts, receives, answers with a fixed number of bytes and
// closes. The yardstick of serving_bench.
//
//   bare_server PORT REPLY_SIZE
#include <netinet/in.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>

int main(int argc, char** argv) {
    if (argc < 3) return 2;
    static char buffer[1024];
    const auto replySize = static_cast<size_t>(atol(argv[2]));
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<in_port_t>(atoi(argv[1])));
    if (bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) return 4;
    if (replySize > sizeof buffer || listen(listener, 512) != 0) return 4;
    for (;;) {
        const int peer = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (peer < 0) continue;
        if (recv(peer, buffer, sizeof buffer, 0) > 0) send(peer, buffer, replySize, MSG_NOSIGNAL);
        shutdown(peer, SHUT_RDWR);
        close(peer);
    }
}
