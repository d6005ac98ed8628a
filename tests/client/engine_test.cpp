#include "client/engine.h"

#include <gtest/gtest.h>

#include "tests/client/fake_agent.h"

namespace zot::client {
namespace {

using std::chrono::milliseconds;

Request Question(uint16_t port, std::string text, milliseconds timeout = milliseconds(20000)) {
    return {.target = {"127.0.0.1", port, kTestPassword, timeout}, .text = std::move(text)};
}

double SecondsOf(const std::function<void()>& action) {
    auto begin = std::chrono::steady_clock::now();
    action();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

// Accepts connections and says nothing.
struct SilentAgent {
    test::Loopback socket{SOCK_STREAM, 512};
    uint16_t Port() const { return static_cast<uint16_t>(socket.Port()); }
};

TEST(Engine, AsksManyHostsAtOnceAndOneHostInOrder) {
    FakeAgent echo([](int fd, const std::string& key, const std::string& text) {
        SendReply(fd, key, "200\n" + text.substr(0, text.find('\n')) + "\n\r");
    });
    Engine engine({.atOnce = 3});
    std::vector<std::string> answers;
    for (int i = 0; i < 40; ++i) {
        engine.Add(Question(echo.Port(), ComposeRequest("Q" + std::to_string(i), {})),
                   [&](Outcome outcome) {
                       EXPECT_EQ(outcome.failure, Failure::kNone) << outcome.message;
                       EXPECT_EQ(outcome.localAddress, "127.0.0.1");
                       answers.push_back(outcome.answer.lines.at(0));
                   });
    }
    engine.Run();
    ASSERT_EQ(answers.size(), 40U);
    for (int i = 0; i < 40; ++i) EXPECT_EQ(answers[size_t(i)], "Q" + std::to_string(i));
}

TEST(Engine, HostsThatHangCostTheirTimeOnceAndHoldUpNobody) {
    SilentAgent silent[6];
    FakeAgent good({"200\n\r"});
    Engine engine({.atOnce = 2});
    int timeouts = 0;
    double answered = 0;
    auto begin = std::chrono::steady_clock::now();
    for (SilentAgent& agent : silent) {
        engine.Add(Question(agent.Port(), "GetInfo\n\r", milliseconds(4000)), [&](Outcome outcome) {
            EXPECT_EQ(outcome.failure, Failure::kTimeout);
            ++timeouts;
        });
    }
    engine.Add(Question(good.Port(), "GetInfo\n\r"), [&](Outcome outcome) {
        EXPECT_EQ(outcome.failure, Failure::kNone);
        answered = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    });
    double all = SecondsOf([&] { engine.Run(); });
    EXPECT_EQ(timeouts, 6);
    // Two at once and 4 seconds each would make 12.
    EXPECT_LT(answered, 3.5);
    EXPECT_LT(all, 8);
}

TEST(Engine, TellsEveryFailureByItsWord) {
    auto failureOf = [](Request request) {
        Engine engine;
        Outcome result;
        engine.Add(std::move(request), [&](Outcome outcome) { result = std::move(outcome); });
        engine.Run();
        EXPECT_FALSE(result.failure != Failure::kAgentCode && result.message.empty());
        return FailureWord(result.failure);
    };
    auto answering = [&](const std::string& bytes) {
        FakeAgent agent(
            [bytes](int fd, const std::string&, const std::string&) { SendAll(fd, bytes); });
        return failureOf(Question(agent.Port(), "GetInfo\n\r"));
    };
    EXPECT_EQ(answering(""), "closed");
    EXPECT_EQ(answering(LengthBytes(9) + "half"), "bad_reply");
    EXPECT_EQ(answering("\xFF\xFF\xFF\xFF"), "bad_reply");
    FakeAgent refusing({"600\nno\n\r"});
    EXPECT_EQ(failureOf(Question(refusing.Port(), "X\n\r")), "agent_code");
    uint16_t nobody = static_cast<uint16_t>(test::Loopback(SOCK_STREAM).Port());
    EXPECT_EQ(failureOf(Question(nobody, "X\n\r")), "connect_refused");
    // The system refuses to connect to a group of hosts before anything is sent.
    Request group = Question(1, "X\n\r");
    group.target.host = "224.0.0.1";
    EXPECT_NE(failureOf(group), "timeout");
    SilentAgent silent;
    EXPECT_EQ(failureOf(Question(silent.Port(), "X\n\r", milliseconds(50))), "timeout");
    Request unknown = Question(1, "X\n\r");
    unknown.target.host = "no-such-host.invalid";
    unknown.target.timeout = milliseconds(500);
    EXPECT_EQ(failureOf(unknown), "resolve");
    Request late = Question(silent.Port(), "X\n\r");
    late.deadline = Deadline::Clock::now() + milliseconds(30);
    EXPECT_EQ(failureOf(late), "timeout");
}

TEST(Engine, JunkEndsAtOnceAndASlowReplyAtTheDeadline) {
    // Nobody waits for the rest of something that is not a reply, however much it announces.
    FakeAgent junk([](int fd, const std::string&, const std::string&) {
        SendAll(fd, LengthBytes(64 << 20) + std::string(1000, 'x'));
        char byte;
        recv(fd, &byte, 1, 0);
    });
    Outcome outcome;
    EXPECT_LT(SecondsOf([&] { outcome = AskOnce(Question(junk.Port(), "X\n\r").target, "X\n\r"); }),
              10);
    EXPECT_EQ(outcome.failure, Failure::kBadReply);

    FakeAgent slow([](int fd, const std::string& key, const std::string&) {
        std::string bytes =
            LengthBytes(1 << 20) + Encrypt(key, "200\n" + std::string(1 << 20, 'x'));
        for (size_t i = 0; i < bytes.size(); ++i) {
            if (send(fd, &bytes[i], 1, MSG_NOSIGNAL) != 1) return;
            std::this_thread::sleep_for(milliseconds(2));
        }
    });
    Target target = Question(slow.Port(), "", milliseconds(300)).target;
    EXPECT_LT(SecondsOf([&] { outcome = AskOnce(target, "X\n\r"); }), 5);
    EXPECT_EQ(outcome.failure, Failure::kTimeout);
}

TEST(Engine, WhoeverWasSilentForLongIsStillHeard) {
    FakeAgent slow([](int fd, const std::string& key, const std::string&) {
        const std::string bytes = LengthBytes(5) + Encrypt(key, "200\n\r");
        for (const auto& [wait, part] : {std::pair{60, bytes.substr(0, 2)},
                                         std::pair{700, bytes.substr(2) + "what follows"}}) {
            std::this_thread::sleep_for(milliseconds(wait));
            SendAll(fd, part);
        }
    });
    EXPECT_EQ(AskOnce(Question(slow.Port(), "").target, "X\n\r").answer.code, "200");
    // Connects when the system asks again, after a second, and is then hung up on.
    test::Loopback busy(SOCK_STREAM, 1);
    const auto port = static_cast<uint16_t>(busy.Port());
    busy.Deafen();
    std::thread accepts([&] {
        std::this_thread::sleep_for(milliseconds(100));
        busy.Hear();
        busy.Accept();
    });
    Outcome outcome = AskOnce(Question(port, "", milliseconds(10000)).target, "X\n\r");
    EXPECT_EQ(FailureWord(outcome.failure), "closed") << outcome.message;
    accepts.join();
}

TEST(Engine, ARequestThatIsCancelledIsForgotten) {
    SilentAgent silent;
    FakeAgent good({"200\n\r"});
    Engine engine;
    RequestId waiting = engine.Add(Question(silent.Port(), "X\n\r"), [](Outcome) { FAIL(); });
    RequestId queued = engine.Add(Question(silent.Port(), "X\n\r"), [](Outcome) { FAIL(); });
    bool answered = false;
    engine.Add(Question(good.Port(), "X\n\r"), [&](Outcome) {
        answered = true;
        engine.Cancel(queued);
        engine.Cancel(waiting);
        engine.Cancel(12345);
    });
    EXPECT_LT(SecondsOf([&] { engine.Run(); }), 10);
    EXPECT_TRUE(answered);
}

TEST(Engine, ServesOtherThreadsUntilItIsStopped) {
    FakeAgent good({"200\n\r"});
    Engine engine;
    std::thread loop([&] { engine.RunUntilStopped(); });
    std::atomic<int> answers{0};
    for (int i = 0; i < 10; ++i) {
        engine.Post([&] {
            engine.Add(Question(good.Port(), "X\n\r"), [&](Outcome) {
                if (++answers == 10) engine.After(milliseconds(1), [&] { engine.Stop(); });
            });
        });
    }
    loop.join();
    EXPECT_EQ(answers, 10);
}

}  // namespace
}  // namespace zot::client
