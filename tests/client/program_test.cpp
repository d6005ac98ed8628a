#include "client/program.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <functional>
#include <sstream>
#include <thread>

#include "client/agent_client.h"
#include "tests/support/temp_dir.h"

namespace zot::client {
namespace {

constexpr const char* kPassword = "secret";

std::string LengthBytes(size_t value) {
    std::string bytes;
    for (int i = 0; i < 4; ++i) bytes += static_cast<char>(value >> (8 * i) & 0xFF);
    return bytes;
}

// Accepts one connection, reads one request and sends what the handler makes of it.
class FakeAgent {
  public:
    enum class Then { kClose, kWaitForPeer };
    // Takes the session key and the request text, returns the bytes to send.
    using Handler = std::function<std::string(const std::string& key, const std::string& text)>;

    explicit FakeAgent(Handler handler, Then then = Then::kClose)
        : listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address = {};
        socklen_t size = sizeof(address);
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        auto* generic = reinterpret_cast<sockaddr*>(&address);
        EXPECT_EQ(bind(listener_.Get(), generic, size), 0);
        EXPECT_EQ(listen(listener_.Get(), 1), 0);
        EXPECT_EQ(getsockname(listener_.Get(), generic, &size), 0);
        port_ = ntohs(address.sin_port);
        thread_ = std::thread([this, handler, then] { Serve(handler, then); });
    }
    ~FakeAgent() { thread_.join(); }
    uint16_t Port() const { return port_; }

  private:
    void Serve(const Handler& handler, Then then) const {
        UniqueFd peer(accept(listener_.Get(), nullptr, nullptr));
        std::string packet(65536, '\0');
        ASSERT_EQ(recv(peer.Get(), packet.data(), 4, MSG_WAITALL), 4);
        size_t length = static_cast<uint8_t>(packet[0]) + 256U * static_cast<uint8_t>(packet[1]);
        ASSERT_EQ(recv(peer.Get(), packet.data() + 4, length, MSG_WAITALL), ssize_t(length));
        size_t keyLength = static_cast<uint8_t>(packet[24]);
        std::string key = Decrypt(kPassword, packet.substr(26, keyLength));
        std::string text = Decrypt(key, packet.substr(30 + keyLength, length - 26 - keyLength));
        std::string reply = handler(key, text);
        send(peer.Get(), reply.data(), reply.size(), MSG_NOSIGNAL);
        if (then == Then::kWaitForPeer) recv(peer.Get(), packet.data(), 1, 0);
    }

    UniqueFd listener_;
    uint16_t port_ = 0;
    std::thread thread_;
};

FakeAgent::Handler SealedReply(const std::string& replyText, std::string* request = nullptr) {
    return [=](const std::string& key, const std::string& text) {
        if (request) *request = text;
        return LengthBytes(replyText.size()) + Encrypt(key, replyText);
    };
}

FakeAgent::Handler Bytes(const std::string& bytes) {
    return [=](const std::string&, const std::string&) { return bytes; };
}

struct ProgramRun {
    explicit ProgramRun(std::vector<std::string> words, const char* password = kPassword,
                        const std::string& input = "") {
        std::vector<const char*> arguments;
        for (const std::string& word : words) arguments.push_back(word.c_str());
        std::istringstream in(input);
        std::ostringstream outStream, errStream;
        status = RunProgram(arguments, password, {in, outStream, errStream});
        out = outStream.str();
        err = errStream.str();
    }
    int status;
    std::string out, err;
};

std::string PortOf(const FakeAgent& agent) { return "-p" + std::to_string(agent.Port()); }

TEST(Program, SendsTheParametersAndPrintsTheReply) {
    std::string request;
    FakeAgent agent(SealedReply("200\na%0Ab\n\nlast\n\r", &request));
    ProgramRun run({PortOf(agent), "TEST-X", "-1", "-", "two\nlines"}, kPassword,
                   "from\n stdin\r\nend");
    EXPECT_EQ(run.status, kReplyOk) << run.err;
    EXPECT_EQ(run.out, "200\na%0Ab\n\nlast\n");
    EXPECT_EQ(request, "TEST-X\n-1\nfrom\n stdin%0D\nend\ntwo%0Alines\n\r");
}

TEST(Program, UnescapesOnDemandAndTellsOtherCodesApart) {
    FakeAgent agent(SealedReply("301\nbad%0D%0Athing%0a\n\r"));
    ProgramRun run({PortOf(agent), "-u", "TEST-X"});
    EXPECT_EQ(run.status, kReplyOther);
    EXPECT_EQ(run.out, "301\nbad\r\nthing%0a\n");
}

TEST(Program, TakesThePasswordFromTheFirstLineOfAFile) {
    test::TempDir dir;
    for (const char* content : {"secret", "secret\n", "secret\r\nmore\n"}) {
        FakeAgent agent(SealedReply("200\n\r"));
        ProgramRun run({PortOf(agent), "-P", dir.Write("pw", content), "GetInfo"}, "not this one");
        EXPECT_EQ(run.status, kReplyOk) << run.err;
    }
}

TEST(Program, ReceivesLongReplies) {
    std::string value(3000000, 'v');
    FakeAgent agent(SealedReply("200\n" + value + "\n\r"));
    EXPECT_EQ(ProgramRun({PortOf(agent), "GetFilesList"}).out, "200\n" + value + "\n");
}

TEST(Program, NoValidReply) {
    struct Case {
        FakeAgent::Handler handler;
        FakeAgent::Then then;
        const char* message;
    } cases[] = {
        {Bytes(""), FakeAgent::Then::kClose, "closed the connection without a reply"},
        {Bytes(LengthBytes(8) + "half"), FakeAgent::Then::kClose, "in the middle"},
        {Bytes(LengthBytes(8) + "garbage!"), FakeAgent::Then::kClose, "no status code"},
        {Bytes(LengthBytes(0)), FakeAgent::Then::kClose, "no status code"},
        {Bytes("\xFF\xFF\xFF\xFF"), FakeAgent::Then::kWaitForPeer, "announces 4294967295 bytes"},
        {Bytes(LengthBytes(8) + "half"), FakeAgent::Then::kWaitForPeer, "within the time limit"},
    };
    for (const Case& c : cases) {
        FakeAgent agent(c.handler, c.then);
        ProgramRun run({PortOf(agent), "-t", "1", "GetInfo"});
        EXPECT_EQ(run.status, kNoReply);
        EXPECT_EQ(run.out, "");
        EXPECT_NE(run.err.find(c.message), std::string::npos) << run.err;
    }
}

TEST(Program, UsageErrorsSendNothing) {
    test::TempDir dir;
    std::vector<std::vector<std::string>> wrong = {
        {},
        {"--"},
        {"-x", "GetInfo"},
        {"-p"},
        {"-p", "0", "GetInfo"},
        {"-p70000", "GetInfo"},
        {"-t", "1s", "GetInfo"},
        {"-H", "", "GetInfo"},
        {"-P", dir / "missing", "GetInfo"},
        {"-P", dir.Path(), "GetInfo"},
        {"-P", dir.Write("empty", "\nsecret\n"), "GetInfo"},
    };
    for (const auto& words : wrong) {
        ProgramRun run(words);
        EXPECT_EQ(run.status, kWrongUsage) << testing::PrintToString(words);
        EXPECT_TRUE(run.err.starts_with("zotq: ")) << run.err;
    }
    EXPECT_EQ(ProgramRun({"GetInfo"}, nullptr).status, kWrongUsage);
    EXPECT_EQ(ProgramRun({"--version"}, nullptr).out, "zotq 1.36\n");
    EXPECT_EQ(ProgramRun({"--help", "-p"}, nullptr).status, kWrongUsage);
    EXPECT_NE(ProgramRun({"--help"}, nullptr).out.find("-t SECONDS"), std::string::npos);
}

TEST(AgentConnection, ReadsRepliesOneByOneAndTheRestUntilClose) {
    FakeAgent agent([](const std::string& key, const std::string&) {
        return LengthBytes(5) + Encrypt(key, "200\n\r") + LengthBytes(6) + "rest";
    });
    AgentConnection connection;
    Deadline deadline(std::chrono::seconds(10));
    std::string text, rest, error;
    ASSERT_TRUE(connection.Open("localhost", agent.Port(), deadline, error)) << error;
    ASSERT_TRUE(connection.Send(BuildRequest(kPassword, "key", "QUIT\n\r"), deadline, error));
    ASSERT_TRUE(connection.ReceiveReply("key", deadline, text, error)) << error;
    EXPECT_EQ(text, "200\n\r");
    ASSERT_TRUE(connection.ReceiveUntilClose(deadline, rest, error)) << error;
    EXPECT_EQ(rest, LengthBytes(6) + "rest");
}

}  // namespace
}  // namespace zot::client
