#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "base/sockets.h"
#include "checks/net/net_checks.h"
#include "checks/net/syslog.h"
#include "tests/support/loopback.h"

namespace zot {
namespace {

using test::Loopback;
using Handler = void (*)(std::string_view, const AgentSettings&, Reply&);

constexpr const char* kSent = "200\nData has been sent\n";

std::string Ask(Handler handler, const std::string& params) {
    Reply reply;
    handler(params, AgentSettings(), reply);
    return std::string(reply.Text().View());
}

// The value line of a successful test, whose elapsed time must be below a second.
std::string Answer(const std::string& reply) {
    size_t line = reply.find('\n', 4);
    if (reply.substr(0, 4) != "200\n" || line == std::string::npos) return "no success: " + reply;
    int elapsed = std::stoi(reply.substr(4));
    EXPECT_GE(elapsed, 0);
    EXPECT_LT(elapsed, 1000);
    return reply.substr(line + 1);
}

TEST(NetHandlers, Refusals) {
    struct Case {
        Handler handler;
        std::vector<std::string> params;
    };
    for (const Case& c :
         {Case{TestTcp, {"", "h\nx\n1\n\n0\n", "h\n1\n1.5\n\n0\n", "h\n1\n1\nd\n\r"}},
          {TestUdp,
           {"h\n1\n1\n0\nd\n0\n", "h\n1\n1\n1\n\n0\n", "h\n1\n1\nx\nd\n0\n", "h\n1\n1\n1\nd\nx\n"}},
          {ActSyslog,
           {"", "\nh\n1\n1\nx\n", " \n1\n1\n1\nx\n", "h\n1\n1\n8\nx\n", "h\nx\n1\n1\nx\n",
            "h\n1\n1.\n1\nx\n"}},
          {ActTcpUdpSend,
           {"", "\n127.0.0.1\n1\n0\nd\n0\n", "h\n1\n0\n\n0\n", "h\nx\n0\nd\n0\n",
            "h\n1\n0\nd\nx\n"}}}) {
        for (const std::string& params : c.params) {
            EXPECT_EQ(Ask(c.handler, params), "501\nWrong parameter\n") << params;
        }
    }
    const std::string host = "no-such-host.invalid\n1\n";
    const std::string unresolved = "301\nCannot resolve server name to IP address\n";
    EXPECT_EQ(Ask(TestTcp, host + "9999\n\n1\n\r"), unresolved + "-2\n");
    EXPECT_EQ(Ask(TestUdp, host + "9999\n2\nd\n1\n\r"), unresolved + "-2\n");
    EXPECT_EQ(Ask(ActSyslog, host + "4\n2\nx\n\r"), unresolved);
    EXPECT_EQ(Ask(ActTcpUdpSend, host + "0\nd\n0\n\r"), unresolved);
}

TEST(NetHandlers, TcpDataIsEscapedBothWaysAndCut) {
    Loopback listener(SOCK_STREAM, 4);
    std::string seen;
    std::thread peer([&] {
        UniqueFd client = listener.Accept();
        std::string answer = "220 \r\n" + std::string(9994, 'x');
        send(client.Get(), answer.data(), answer.size(), 0);
        seen = test::ReceiveAll(client.Get());
    });
    std::string answer = Answer(Ask(TestTcp, listener.HostLines() + "0\n HELO%0D%0A\n10000\n\r"));
    peer.join();
    EXPECT_EQ(seen, " HELO\r\n");
    EXPECT_EQ(answer, "220 %0D%0A" + std::string(8192 - 6, 'x') + "\n");
}

TEST(NetHandlers, TcpWithoutAnAnswer) {
    Loopback silent(SOCK_STREAM, 4), closing(SOCK_STREAM, 4);
    for (const char* nothing : {"0", "-1"}) {
        EXPECT_EQ(Answer(Ask(TestTcp, silent.HostLines() + "9000\n\n" + nothing + "\n")), "\n");
    }
    EXPECT_EQ(Ask(TestTcp, silent.HostLines() + "100\n\n1\n"), "301\nTimeout\n0\n");
    std::thread peer([&] { closing.Accept(); });
    EXPECT_EQ(Ask(TestTcp, closing.HostLines() + "9000\n\n1\n"), "301\n\n0\n");
    peer.join();
}

TEST(NetHandlers, UdpTriesAgainAfterAWholeSecond) {
    Loopback server(SOCK_DGRAM);
    std::thread peer([&] {
        server.Receive();
        server.Reply(server.Receive());
    });
    std::string reply = Ask(TestUdp, server.HostLines() + "500\n3\na%0Ab \n10000\n\r");
    peer.join();
    // The time is that of the attempt that succeeded.
    EXPECT_EQ(Answer(reply), "a%0Ab \n");
}

TEST(NetHandlers, UdpWithoutAnAnswer) {
    Loopback silent(SOCK_DGRAM);
    // A negative time means a second, as 0 does, or the attempts would be a flood.
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(Ask(TestUdp, silent.HostLines() + "-3000\n2\nd\n1\n"), "301\nTimeout\n0\n");
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
    for (int attempt = 0; attempt < 2; ++attempt) EXPECT_EQ(silent.Receive(), "d");
    // A negative number of attempts makes none.
    EXPECT_EQ(Ask(TestUdp, silent.HostLines() + "0\n-1\nd\n1\n"), "301\n\n0\n");
    EXPECT_EQ(Answer(Ask(TestUdp, silent.HostLines() + "0\n1\nd\n0\n")), "\n");
}

TEST(NetHandlers, AnOmittedSyslogTextIsEmpty) {
    Loopback server(SOCK_DGRAM);
    EXPECT_EQ(Ask(ActSyslog, server.HostLines() + "4\n2\n\r"),
              "200\nSyslog: Data to 127.0.0.1 has been sent\n");
    EXPECT_TRUE(server.Receive().ends_with(" VY ZOT: "));
}

TEST(NetHandlers, SyslogMessageBytes) {
    std::tm time{};
    time.tm_mon = 10;
    time.tm_hour = 9;
    time.tm_min = 3;
    time.tm_sec = 7;
    auto message = [&time](int day, int32_t facility, int32_t severity) {
        time.tm_mday = day;
        return BuildSyslogMessage(time, htonl(0x0A000102), facility, severity, "disk  full");
    };
    EXPECT_EQ(message(5, 4, 2), "<34>Nov 5 09:03:07 10.0.1.2 VY ZOT: disk  full");
    // A two-digit day follows the month without a blank.
    EXPECT_EQ(message(15, 0, 0), "<0>Nov15 09:03:07 10.0.1.2 VY ZOT: disk  full");
    EXPECT_EQ(message(20, 2147483647, -1).Pos("<17179869175>Nov20 "), 1);
}

TEST(NetHandlers, SyslogIsSentAsOneDatagram) {
    Loopback server(SOCK_DGRAM);
    EXPECT_EQ(Ask(ActSyslog, server.HostLines() + "4\n2\n a%0Ab \n\r"),
              "200\nSyslog: Data to 127.0.0.1 has been sent\n");
    std::string datagram = server.Receive();
    std::string tail = std::string(" ") + inet_ntoa({LocalHostAddress()}) + " VY ZOT:  a\nb ";
    constexpr size_t kHeadSize = 18;  // "<34>Nov15 09:03:07"
    EXPECT_EQ(datagram.substr(0, 4), "<34>");
    ASSERT_EQ(datagram.size(), kHeadSize + tail.size());
    EXPECT_EQ(datagram.substr(kHeadSize), tail);
}

TEST(NetHandlers, SendOverTcp) {
    Loopback listener(SOCK_STREAM, 4);
    auto sent = [&listener](const std::string& rest) {
        std::string received;
        std::thread peer([&] { received = test::ReceiveAll(listener.Accept().Get()); });
        EXPECT_EQ(Ask(ActTcpUdpSend, listener.HostLines() + rest), kSent);
        peer.join();
        return received;
    };
    EXPECT_EQ(sent("0\n one%0D%0A\n0\n two \n\r"), " one\r\n two ");
    EXPECT_EQ(sent("0\none\n0\n"), "one");
    // The end mark of the request is not a second block, but an escaped carriage return is.
    EXPECT_EQ(sent("0\none\n0\n\r"), "one");
    EXPECT_EQ(sent("0\none\n-1\n%0D\n\r"), "one\r");
}

TEST(NetHandlers, SendingEndsBeforeTheConnectionCloses) {
    Loopback listener(SOCK_STREAM, 4);
    std::string received;
    int error = 0;
    std::thread peer([&] {
        UniqueFd client = listener.Accept();
        send(client.Get(), "hello", 5, 0);  // which nobody reads
        received = test::ReceiveAll(client.Get());
        socklen_t size = sizeof error;
        getsockopt(client.Get(), SOL_SOCKET, SO_ERROR, &error, &size);
    });
    const std::string block(1 << 20, 'd');
    EXPECT_EQ(Ask(ActTcpUdpSend, listener.HostLines() + "0\n" + block + "\n0\n"), kSent);
    peer.join();
    EXPECT_EQ(received.size(), block.size());
    EXPECT_EQ(error, 0) << "no reset";
    // The wait for a peer that stays is limited.
    UniqueFd stays;
    std::thread silent([&] { stays = listener.Accept(); });
    EXPECT_EQ(Ask(ActTcpUdpSend, listener.HostLines() + "0\nd\n0\n"), kSent);
    silent.join();
}

TEST(NetHandlers, SendOverUdpForEveryOtherProtocol) {
    Loopback server(SOCK_DGRAM);
    EXPECT_EQ(Ask(ActTcpUdpSend, server.HostLines() + "TCP\none\n1\ntwo\n"), kSent);
    EXPECT_EQ(server.Receive(), "one");
    in_port_t port = server.Peer().sin_port;
    EXPECT_EQ(server.Receive(), "two");
    EXPECT_EQ(server.Peer().sin_port, port) << "both blocks come from one socket";
}

}  // namespace
}  // namespace zot
