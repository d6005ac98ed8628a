#include "base/sockets.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/time.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <string>
#include <thread>

#include "base/resolver.h"
#include "tests/support/loopback.h"

namespace zot {
namespace {

using test::Loopback;

// The lowest free descriptor: unchanged by calls that leak none.
int NextFd() { return UniqueFd(dup(0)).Get(); }

// TcpConnect's result, with the socket closed again.
int32_t Connect(const char* host, int port, int32_t timeoutMs, VyString& error) {
    OutgoingSocket socket;
    return TcpConnect(socket, host, port, timeoutMs, error);
}

TEST(Sockets, HostNames) {
    struct Case {
        const char* name;
        int32_t result;
        uint32_t address;
    };
    for (const Case& c : {Case{"127.0.0.1", 1, INADDR_LOOPBACK},
                          {"localhost", 1, INADDR_LOOPBACK},
                          {"255.255.255.255", 1, INADDR_BROADCAST},
                          {"no-such-host.invalid", -2, 0},
                          {"", -2, 0}}) {
        VyString error("left over");
        uint32_t address = 0;
        EXPECT_EQ(ResolveHost(c.name, address, error), c.result) << c.name;
        EXPECT_EQ(ntohl(address), c.address) << c.name;
        EXPECT_EQ(error, c.result == 1 ? "" : "Cannot resolve server name to IP address");
    }
}

TEST(Sockets, TcpConnect) {
    Loopback listener(SOCK_STREAM, 4), refusing(SOCK_STREAM);
    OutgoingSocket socket;
    VyString error;
    // Only 16 bits of the port count.
    ASSERT_EQ(TcpConnect(socket, "127.0.0.1", listener.Port() + 65536, 1000, error), 1);
    EXPECT_TRUE(fcntl(socket.Get(), F_GETFL) & O_NONBLOCK);
    EXPECT_TRUE(fcntl(socket.Get(), F_GETFD) & FD_CLOEXEC);
    EXPECT_EQ(TcpConnect(socket, "127.0.0.1", refusing.Port(), 0, error), -6);
    EXPECT_EQ(error, strerror(ECONNREFUSED));
    EXPECT_TRUE(socket) << "handed back whatever the result";
    socket.Reset();

    int before = NextFd();
    // The text of the call that began the connection, not of the later refusal.
    EXPECT_EQ(Connect("127.0.0.1", refusing.Port(), 1000, error), -6);
    EXPECT_TRUE(error == strerror(EINPROGRESS) || error == strerror(ECONNREFUSED)) << error.View();
    EXPECT_EQ(Connect("127.0.0.1", listener.Port(), -1, error), -6);
    EXPECT_EQ(error, strerror(EINVAL));
    EXPECT_EQ(NextFd(), before);
}

TEST(Sockets, ConnectTimesOutWhenNobodyAnswers) {
    Loopback listener(SOCK_STREAM, 4);
    listener.Deafen();
    VyString error;
    EXPECT_EQ(Connect("127.0.0.1", listener.Port(), 50, error), 0);
    EXPECT_EQ(error, "Timeout");
}

TEST(Sockets, SignalsDoNotShortenAWait) {
    struct sigaction action {
    }, old{};
    action.sa_handler = [](int) {};
    sigaction(SIGALRM, &action, &old);
    itimerval every{{0, 20000}, {0, 20000}}, off{};
    setitimer(ITIMER_REAL, &every, nullptr);

    Loopback silent(SOCK_STREAM, 4);
    char buffer[8];
    VyString error;
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(TcpExchange("127.0.0.1", silent.Port(), 150, "x", buffer, error), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(150));
    EXPECT_EQ(error, "Timeout");

    setitimer(ITIMER_REAL, &off, nullptr);
    sigaction(SIGALRM, &old, nullptr);
}

TEST(Sockets, TcpSendGoesOnUntilAllIsTakenOrThePeerStalls) {
    Loopback listener(SOCK_STREAM, 4);
    std::string data(16 << 20, 'd');
    OutgoingSocket socket;
    VyString error;
    ASSERT_EQ(TcpConnect(socket, "127.0.0.1", listener.Port(), 1000, error), 1);
    UniqueFd peer = listener.Accept();
    size_t taken = 0;  // the buffers grow for a while, then the peer stalls
    int32_t part;
    while ((part = TcpSend(socket.Get(), data, 20, error)) > 0) taken += static_cast<size_t>(part);
    EXPECT_EQ(part, 0);
    EXPECT_GT(taken, 0U);
    EXPECT_EQ(error, "Timeout");

    std::string received;
    std::thread reader([&] { received = test::ReceiveAll(peer.Get()); });
    EXPECT_EQ(TcpSend(socket.Get(), data, 5000, error), static_cast<int32_t>(data.size()));
    socket.Reset();
    reader.join();
    EXPECT_EQ(received.size(), data.size() + taken);
}

// Whether the agent takes the peer of the connection for itself.
bool IsOwn(const sockaddr_in& peer) {
    return IsOwnConnection(peer.sin_addr.s_addr, ntohs(peer.sin_port));
}

TEST(Sockets, OwnConnectionsAreKnownUntilTheyAreServed) {
    Loopback listener(SOCK_STREAM, 4), other(SOCK_STREAM, 4);
    VyString error;
    NoteListeningPort(static_cast<uint16_t>(listener.Port()));
    for (bool closedFirst : {false, true}) {
        OutgoingSocket socket;
        ASSERT_EQ(TcpConnect(socket, "127.0.0.1", listener.Port(), 1000, error), 1);
        UniqueFd accepted = listener.Accept();
        sockaddr_in peer{};
        socklen_t size = sizeof peer;
        getpeername(accepted.Get(), reinterpret_cast<sockaddr*>(&peer), &size);
        EXPECT_TRUE(IsOwn(peer));
        if (closedFirst) socket.Reset();
        EXPECT_TRUE(IsOwn(peer));
        ForgetServedConnection(peer.sin_addr.s_addr, ntohs(peer.sin_port));
        EXPECT_EQ(IsOwn(peer), !closedFirst);
        socket.Reset();
        EXPECT_FALSE(IsOwn(peer)) << "the port is anybody's again";
    }
    OutgoingSocket elsewhere;
    ASSERT_EQ(TcpConnect(elsewhere, "127.0.0.1", other.Port(), 1000, error), 1);
    sockaddr_in end{};
    socklen_t size = sizeof end;
    getsockname(elsewhere.Get(), reinterpret_cast<sockaddr*>(&end), &size);
    EXPECT_TRUE(IsOwn(end));
    elsewhere.Reset();
    EXPECT_FALSE(IsOwn(end));
}

TEST(Sockets, TcpSendToADeadPeerFailsWithoutASignal) {
    Loopback listener(SOCK_STREAM, 4);
    OutgoingSocket socket;
    VyString error;
    ASSERT_EQ(TcpConnect(socket, "127.0.0.1", listener.Port(), 1000, error), 1);
    listener.Accept();
    EXPECT_EQ(TcpSend(socket.Get(), "x", 100, error), 1);
    pollfd reset{socket.Get(), POLLIN, 0};
    ASSERT_EQ(poll(&reset, 1, 1000), 1);
    test::ReceiveAll(socket.Get());  // takes the reset, so that the next send meets a dead pipe
    EXPECT_EQ(TcpSend(socket.Get(), "x", 100, error), -4);
    EXPECT_EQ(error, strerror(EPIPE));
}

TEST(Sockets, UdpAnswersAreCutToTheBufferAndMayBeEmpty) {
    Loopback peer(SOCK_DGRAM);
    char buffer[4];
    VyString error;
    for (std::string text : {"longer", ""}) {
        std::thread answering([&] {
            peer.Receive();
            peer.Reply(text);
        });
        int32_t count = UdpRequest("127.0.0.1", peer.Port(), 5, "ping", buffer, error);
        answering.join();
        EXPECT_EQ(std::string(buffer, static_cast<size_t>(count)), text.substr(0, sizeof buffer));
        EXPECT_EQ(error, "");
    }
    EXPECT_EQ(UdpRequest("127.0.0.1", peer.Port(), 1, std::string(70000, 'x'), buffer, error), -4);
    EXPECT_EQ(error, strerror(EMSGSIZE));
}

TEST(Sockets, Listener) {
    VyString error("left over");
    UniqueFd listener = OpenListener("", "0", error);
    ASSERT_TRUE(listener);
    EXPECT_EQ(error, "");
    EXPECT_TRUE(fcntl(listener.Get(), F_GETFD) & FD_CLOEXEC);
    sockaddr_in address{};
    socklen_t size = sizeof address;
    getsockname(listener.Get(), reinterpret_cast<sockaddr*>(&address), &size);
    int port = ntohs(address.sin_port);
    EXPECT_EQ(Connect("127.0.0.1", port, 1000, error), 1);

    int before = NextFd();
    EXPECT_FALSE(OpenListener("", std::to_string(port), error));
    EXPECT_EQ(error, "socket() or bind() error");
    EXPECT_FALSE(OpenListener("no-such-host.invalid", "0", error));
    EXPECT_NE(error, "socket() or bind() error") << "the resolver's own message";
    EXPECT_NE(error, "");
    EXPECT_EQ(NextFd(), before);
}

TEST(Sockets, AcceptedConnectionsNoticeDeadPeers) {
    VyString error;
    UniqueFd listener = OpenListener("127.0.0.1", "0", error);
    NoticeDeadPeers(listener.Get());
    sockaddr_in address{};
    socklen_t size = sizeof address;
    getsockname(listener.Get(), reinterpret_cast<sockaddr*>(&address), &size);
    OutgoingSocket client;
    ASSERT_EQ(TcpConnect(client, "127.0.0.1", ntohs(address.sin_port), 1000, error), 1);
    UniqueFd accepted(accept(listener.Get(), nullptr, nullptr));
    const struct {
        int level, option, value;
    } expected[] = {{IPPROTO_TCP, TCP_KEEPIDLE, 20},
                    {IPPROTO_TCP, TCP_KEEPINTVL, 10},
                    {IPPROTO_TCP, TCP_KEEPCNT, 3}};
    int value = 0;
    size = sizeof value;
    EXPECT_EQ(getsockopt(accepted.Get(), SOL_SOCKET, SO_KEEPALIVE, &value, &size), 0);
    EXPECT_NE(value, 0);
    for (const auto& [level, option, wanted] : expected) {
        EXPECT_EQ(getsockopt(accepted.Get(), level, option, &value, &size), 0);
        EXPECT_EQ(value, wanted);
    }
}

}  // namespace
}  // namespace zot
