// The real agent while memory, files, processes, sockets and clocks fail: it gives the reply or the
// exit that belongs to the fault, or else goes on serving. Never a crash, never a descriptor or a
// temporary file left.

#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "tests/support/agent_process.h"
#include "tests/support/checkers.h"
#include "tests/support/fault_injection.h"
#include "tests/support/loopback.h"
#include "tests/support/process_info.h"

namespace zot::test {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using Lines = std::vector<std::string>;

struct Request {
    const char* command;
    Lines params;
};

// Requests that together open, read and write files, start children, and listen to the network.
const Request kRequests[] = {
    {"GetInfo", {}},
    {"GetSettings", {}},
    {"SetSettings", {"Comment=changed"}},
    {"TEST-ExternalPrg", {"/bin/echo x", "", "", "2000"}},
    {"TEST-ShellScript", {"sh %script% ", "echo scriptres:1", "", "5", "3"}},
    {"TEST-FolderSize", {".", "1"}},
    {"TEST-FileExists", {"/%newestfolder%", "", "", "", "", "", "1"}},
    {"TEST-FileCompare", {"0", "/etc/passwd", "/etc/passwd"}},
    {"TEST-TCP", {"127.0.0.1", "1", "1000", "", "0"}},
    {"GetFilesList", {"/", "*", "1", "1"}},
    {"UpgradeCode", {"101"}},
};

class Faults : public testing::Test {
  protected:
    Faults() {
        options_.arguments = {"-i", "-v"};
        options_.environment = faults_.Environment();
        options_.settings =
            "timeout=1000\ndelayforscripts=0\nlogsuccess=1\noklogfile=ok.txt\nbadlogfile=bad.txt\n";
    }

    // Of the agent between two requests.
    size_t Descriptors() const { return DescriptorsOf(agent_->Pid()).size(); }

    void Start() {
        agent_.emplace(options_);
        ASSERT_EQ(agent_->Ask("GetInfo").code, "200");
        // The session that answered may still be closing its socket.
        int unchanged = 0;
        EXPECT_TRUE(WaitUntil([&] {
            size_t before = std::exchange(descriptors_, Descriptors());
            unchanged = before == descriptors_ ? unchanged + 1 : 0;
            return unchanged == 10;
        }));
    }

    // Asks, although no good answer is needed.
    bool TryAsk(const Request& request, const char* password = nullptr) const {
        client::Target target = agent_->Target();
        if (password != nullptr) target.password = password;
        return test::TryAsk(target, request.command, request.params);
    }

    void ExpectAnswer(const Request& request, const std::string& code, const Lines& lines) const {
        client::Answer answer = agent_->Ask(request.command, request.params);
        EXPECT_EQ(answer.code, code) << request.command;
        EXPECT_EQ(answer.lines, lines) << request.command;
    }

    // The fault is over: everything must be as before.
    void ExpectUnharmed() {
        ASSERT_FALSE(agent_->WaitForExit(milliseconds(0)).has_value());
        EXPECT_EQ(agent_->Ask("ReloadCfg").code, "200");
        EXPECT_TRUE(agent_->IsAlone());
        EXPECT_TRUE(WaitUntil([this] { return Descriptors() == descriptors_; }))
            << Descriptors() << " instead of " << descriptors_;
        for (const auto& entry : fs::directory_iterator(agent_->Dir().Path())) {
            std::string name = entry.path().filename();
            EXPECT_FALSE(name.starts_with("tmp") || name.starts_with("zot__") ||
                         name.ends_with(".New"))
                << name;
        }
    }

    FaultInjection faults_;
    AgentOptions options_;
    std::optional<AgentProcess> agent_;
    size_t descriptors_ = 0;
};

TEST_F(Faults, AnAcceptThatFailsEndsTheAgentOrIsPassedOver) {
    for (int error : {EINTR, EAGAIN, ECONNABORTED, EPROTO, EPERM, ENETDOWN, ENETUNREACH,
                      EHOSTUNREACH, ETIMEDOUT}) {
        if (!agent_) Start();
        faults_->accept.Fail(error, 3);
        EXPECT_TRUE(TryAsk(kRequests[0])) << error;
    }
    ExpectUnharmed();
    for (auto [error, text] : {std::pair(EMFILE, "Too many open files"),
                               std::pair(ENFILE, "Too many open files in system")}) {
        Start();
        faults_->accept.Fail(error, 1);
        EXPECT_FALSE(TryAsk(kRequests[0]));
        EXPECT_EQ(agent_->WaitForExit(), 4);
        std::string log = ReadFile(agent_->Dir() / "bad.txt");
        EXPECT_TRUE(log.ends_with("\t Accept fatal error: " + std::string(text) + "\n\n")) << log;
    }
}

TEST_F(Faults, EveryAllocationMayFail) {
    if (!kMeasurable) GTEST_SKIP() << "the checker itself ends without memory";
    Start();
    for (const Request& request : kRequests) {
        // One call after another, until the request makes no further one.
        for (int nth = 0; nth < 300; ++nth) {
            int64_t before = faults_->memory.hits.load();
            faults_->memory.Fail(ENOMEM, 1, nth);
            TryAsk(request);
            faults_->memory.Stop();
            if (faults_->memory.hits.load() == before) break;
        }
    }
    faults_->memory.Fail(ENOMEM, 500);
    for (const Request& request : kRequests) TryAsk(request);
    faults_->memory.Stop();
    EXPECT_GT(faults_->memory.hits.load(), 20);
    ExpectUnharmed();
}

// Requests whose answer is known, so that a wrong one shows: each call that they make fails once,
// one after another. The answer is then either right or reports the failure.
TEST_F(Faults, EveryCallMayFail) {
    TempDir lent;
    fs::create_directories(lent / "tree/below/deep");
    for (const char* file : {"tree/a", "tree/below/b", "tree/below/deep/c"}) {
        lent.Write(file, "content of a file\n");
        fs::permissions(lent / file, fs::perms::all);
    }
    const std::string tree = lent / "tree";
    const std::string log = lent.Write("log", "one\ntwo\n");
    Loopback listener(SOCK_STREAM, 512);
    const struct {
        Request request;
        size_t compared;  // the lines of the answer that are the same every time
    } asked[] = {
        {{"SetSettings", {"Comment=kept"}}, 9},
        {{"GetSettings", {}}, 1},
        {{"TEST-FolderSize", {tree, "1"}}, 9},
        {{"TEST-CountFiles", {tree, "*", "1", "0", "0"}}, 9},
        {{"TEST-FileExists", {tree + "/%newestfolder%/b", "", "", "", "", "", "1"}}, 4},
        {{"TEST-FileHash", {tree + "/a", "1", "0"}}, 9},
        {{"TEST-FileCompare", {"1", tree + "/a", tree + "/below/b", "0", "0", "1"}}, 9},
        {{"TEST-TextLog", {log, "two", "4", "4", "1", "0", "1", "0", "1"}}, 9},
        {{"TEST-ExternalPrg", {"sh -c 'exit 7'", "", "", "9000"}}, 9},
        {{"TEST-ShellScript", {"sh %script% ", "echo scriptres:1", "0", "9", "3"}}, 9},
        {{"TEST-TCP", {"localhost", std::to_string(listener.Port()), "9000", "", "0"}}, 0},
    };
    const struct {
        const char* name;
        CallFault FaultControl::*fault;
        std::vector<int> errors;
        bool keepsConnection = true;  // the answer still arrives
    } calls[] = {
        {"open", &FaultControl::open, {EMFILE, EINTR, EIO}},
        {"read", &FaultControl::read, {EIO, EINTR, kShort}},
        {"readdir", &FaultControl::list, {EIO}},
        {"stat", &FaultControl::look, {EIO, ENOMEM}},
        {"fstat", &FaultControl::fstat, {EIO}},
        {"mmap", &FaultControl::map, {ENOMEM}},
        {"write", &FaultControl::write, {ENOSPC, EIO, EINTR, kShort}},
        {"fsync", &FaultControl::sync, {EIO}},
        {"rename", &FaultControl::rename, {EIO}},
        {"pipe", &FaultControl::pipe, {EMFILE}},
        {"fork", &FaultControl::fork, {EAGAIN, ENOMEM}},
        {"socket", &FaultControl::socket, {EMFILE, ENOBUFS}},
        {"clone", &FaultControl::thread, {EAGAIN}, false},
        {"poll", &FaultControl::poll, {EINTR, ENOMEM}, false},
        {"accept", &FaultControl::accept, {ECONNABORTED, EINTR}, false},
        {"recv", &FaultControl::receive, {EINTR, ECONNRESET, kShort}, false},
        {"send", &FaultControl::send, {EPIPE, ECONNRESET, ENOBUFS, kShort}, false},
    };
    Start();
    for (const auto& [request, compared] : asked) {
        client::Answer right = agent_->Ask(request.command, request.params);
        EXPECT_EQ(right.code, "200") << request.command;
        right.lines.resize(std::min(right.lines.size(), compared));
        const std::string config = ReadFile(agent_->ConfigPath());
        for (const auto& call : calls) {
            CallFault& fault = (*faults_.operator->()).*call.fault;
            for (int error : call.errors) {
                for (int nth = 0; nth < 20; ++nth) {
                    const std::string what = std::string(request.command) + ", " + call.name +
                                             " number " + std::to_string(nth) + ", error " +
                                             std::to_string(error);
                    const int64_t before = fault.hits.load();
                    client::Answer answer;
                    fault.Fail(error, 1, nth);
                    bool answered =
                        test::TryAsk(agent_->Target(), request.command, request.params, &answer);
                    fault.Stop();
                    EXPECT_TRUE(answered || !call.keepsConnection) << what;
                    bool failed = answer.code == "300" || answer.code == "301";
                    if (answered && !failed) {
                        answer.lines.resize(std::min(answer.lines.size(), compared));
                        EXPECT_EQ(answer.code, right.code) << what;
                        EXPECT_EQ(answer.lines, right.lines) << what;
                    }
                    EXPECT_EQ(ReadFile(agent_->ConfigPath()), config) << what;
                    if (fault.hits.load() == before) break;
                }
            }
        }
    }
    for (const auto& call : calls) {
        // No request needs a pipe.
        bool used = call.fault != &FaultControl::pipe;
        EXPECT_EQ(((*faults_.operator->()).*call.fault).hits.load() > 0, used) << call.name;
    }
    ExpectUnharmed();
}

TEST_F(Faults, WhatFailsIsToldToTheServer) {
    Start();
    std::string path = agent_->ConfigPath();
    faults_->fork.Fail(EAGAIN);
    ExpectAnswer(kRequests[3], "301", {"fork error"});
    faults_->fork.Stop();

    faults_->open.Fail(EMFILE);
    ExpectAnswer(kRequests[2], "300", {"Cannot open configuration file '" + path + "'"});
    ExpectAnswer(kRequests[4], "301", {"Cannot create temp file"});
    ExpectAnswer(kRequests[10], "300", {"Cannot create temp file"});
    faults_->open.Stop();

    // A full disk: the old file stays whole, and the change stays in memory.
    std::string before = ReadFile(path);
    faults_->write.Fail(ENOSPC);
    ExpectAnswer({"SetSettings", {"Comment=lost"}}, "300",
                 {"Cannot create new configuration file '" + path + ".New'"});
    ExpectAnswer(kRequests[4], "301", {"cannot create temp file"});
    EXPECT_EQ(ReadFile(path), before);
    EXPECT_EQ(agent_->Info("Comment"), "lost");
    faults_->write.Stop();

    // Short writes are not the server's business.
    faults_->write.Fail(kShort);
    ExpectAnswer({"SetSettings", {"Comment=kept"}}, "200", {});
    faults_->write.Stop();
    EXPECT_NE(ReadFile(path).find("comment=kept\r\n"), std::string::npos);

    faults_->socket.Fail(EMFILE);
    ExpectAnswer(kRequests[8], "301", {"Too many open files", "-3"});
    faults_->socket.Stop();
    ExpectUnharmed();
}

TEST_F(Faults, AFullDiskEndsATransfer) {
    Start();
    client::AgentConnection connection = agent_->Connect();
    auto exchange = [&](const std::string& bytes) {
        Send(connection, bytes);
        return ReceiveReply(connection, "key");
    };
    EXPECT_EQ(exchange(agent_->Packet("key", "UpgradeCode\n101\n\r")), "200\n\r");
    faults_->write.Fail(ENOSPC);
    EXPECT_EQ(exchange("x"), "300\nWrite error\n\r");
    faults_->write.Stop();
    connection.Close();
    ExpectUnharmed();
}

TEST_F(Faults, ASendThatIsBrokenOffIsNotTakenUpAgain) {
    Start();
    faults_->send.Fail(kShort, 1);
    client::AgentConnection connection = agent_->Connect();
    Send(connection, agent_->Packet("key", "GetInfo\n\r"));
    std::string bytes = UntilClose(connection);
    ASSERT_GT(bytes.size(), 4U);
    size_t announced = static_cast<unsigned char>(bytes[0]) +
                       size_t{static_cast<unsigned char>(bytes[1])} * 256 + 4;
    EXPECT_EQ(bytes.size(), announced - announced / 2);
    ExpectUnharmed();
}

TEST_F(Faults, ADateThatJumpsNeitherDropsNorKeepsAnybody) {
    Start();
    for (int64_t jump : {-86400, 86400}) {
        auto start = std::chrono::steady_clock::now();
        client::AgentConnection connection = agent_->Connect();
        Send(connection, "a");
        faults_->dateOffsetSeconds.store(jump);
        UntilClose(connection);
        auto waited = std::chrono::steady_clock::now() - start;
        EXPECT_GT(waited, milliseconds(990));
        EXPECT_LT(waited, milliseconds(4000));
    }
    ExpectUnharmed();
}

TEST_F(Faults, DeadNameServersDoNotHoldUpATimeout) {
    Start();
    faults_->lookupSeconds.store(4);
    auto start = std::chrono::steady_clock::now();
    // More than are looked up at once: the others wait for their turn, within their own limits.
    std::vector<std::thread> askers;
    for (int i = 0; i < 20; ++i) {
        askers.emplace_back([this, i] {
            Request tcp = {"TEST-TCP", {"dead.invalid", "1", "500", "", "0"}};
            Request udp = {"TEST-UDP", {"dead.invalid", "1", "500", "1", "x", "0"}};
            ExpectAnswer(i % 2 == 0 ? tcp : udp, "301", {"Timeout", "0"});
        });
    }
    for (std::thread& asker : askers) asker.join();
    EXPECT_LT(std::chrono::steady_clock::now() - start, milliseconds(3000));
    // The main thread, the threads that served the requests and one free one, and the look-ups.
    EXPECT_LE(ThreadCount(agent_->Pid()), 1 + 20 + 2 + 16) << "look-ups left behind";
    faults_->lookupSeconds.store(0);
    ExpectUnharmed();
}

TEST_F(Faults, FoldersThatDisappear) {
    TempDir lent;
    std::string work = lent / "work";
    std::string logs = lent / "logs";
    fs::create_directories(work);
    fs::create_directories(logs);
    options_.prefix = {"/bin/sh", "-c", "cd " + work + " && exec \"$@\"", "sh"};
    options_.settings += "oklogfile=" + logs + "/ok.txt\n";
    Start();
    EXPECT_NE(ReadFile(logs + "/ok.txt"), "");
    fs::remove_all(work);
    fs::remove_all(logs);
    for (const Request& request : kRequests) EXPECT_TRUE(TryAsk(request)) << request.command;
    ExpectUnharmed();
    fs::create_directories(logs);
    EXPECT_EQ(agent_->Ask("GetInfo").code, "200");
    // The lines of a request are written after its reply.
    EXPECT_TRUE(WaitUntil([&] { return ReadFile(logs + "/ok.txt") != ""; }));
    // A restart from a folder that is gone.
    EXPECT_EQ(agent_->Ask("ReloadApp").code, "200");
    EXPECT_TRUE(WaitUntil([this] { return TryAsk(kRequests[0]); }));
}

TEST_F(Faults, AConfigurationThatIsAFolderForAWhile) {
    options_.arguments = {"-d"};
    Start();
    std::string path = agent_->ConfigPath();
    fs::rename(path, path + ".away");
    fs::create_directory(path);
    ExpectAnswer({"ReloadCfg", {}}, "300", {"Cannot open configuration file '" + path + "'"});
    // A load starts from the defaults and takes nothing back: now there is no password.
    EXPECT_FALSE(TryAsk(kRequests[0]));
    EXPECT_TRUE(TryAsk(kRequests[0], ""));
    agent_->Signal(SIGHUP);
    EXPECT_TRUE(TryAsk(kRequests[0], ""));
    fs::remove(path);
    fs::rename(path + ".away", path);
    agent_->Signal(SIGHUP);
    EXPECT_TRUE(WaitUntil([this] { return TryAsk(kRequests[0]); }));
    EXPECT_TRUE(WaitUntil([this] { return Descriptors() == descriptors_; }));
}

TEST_F(Faults, AStartWithoutMemoryEndsWithAWord) {
    if (!kMeasurable) GTEST_SKIP() << "the checker itself ends without memory";
    faults_->memory.Fail(ENOMEM, INT64_MAX, 40);
    options_.awaitReady = false;
    AgentProcess agent(options_);
    std::optional<int> exit = agent.WaitForExit();
    ASSERT_TRUE(exit.has_value());
    EXPECT_GT(*exit, 0) << "minus a signal";
    EXPECT_NE(agent.ErrorOutput(), "");
}

}  // namespace
}  // namespace zot::test
