#include <gtest/gtest.h>

#include "base/md5.h"
#include "tests/client/fake_agent.h"
#include "tests/support/temp_dir.h"

namespace zot::client {
namespace {

std::string Info(int opened, const char* version, const char* system) {
    return "200\nAgentVersion=" + std::string(version) + "\nRunningOS=" + system +
           "\nOpenedConnections=" + std::to_string(opened) + "\n\r";
}

// A script, as far as anybody looks.
std::string Module(size_t size) {
    std::string module(size, 'm');
    return module.replace(0, std::min<size_t>(size, 2), "#!", std::min<size_t>(size, 2));
}

// A program as today's linkers of each system make it: an ABI, and the loader that it names.
std::string Elf(uint8_t abi, const std::string& loader) {
    std::string file(400, '\0');
    file.replace(0, 4,
                 "\x7F"
                 "ELF");
    file[4] = 2;  // 64 bits
    file[7] = static_cast<char>(abi);
    file[16] = 3;   // shared, as position-independent executables are
    file[32] = 64;  // the table of programs
    file[54] = 56;
    file[56] = 1;
    file[64] = 3;  // the interpreter
    file[64 + 8] = static_cast<char>(200);
    file[64 + 32] = static_cast<char>(loader.size() + 1);
    return file.replace(200, loader.size(), loader);
}

// Receives as agents do, 1024 bytes at once, and slower than the client sends.
class UpgradeAgent {
  public:
    struct Plan {
        int refusals = 0;           // answers "Wrong CRC" this often, whatever it received
        std::string begin = "200";  // the answer to the request
        size_t hangUpAfter = SIZE_MAX;
        bool restarts = true;
        std::string settings = "600\nOperation is not allowed\n\r";
        const char* system = "Linux 6.1";
        std::string* module = nullptr;  // receives what was sent, to be read when the agent is gone
    };
    explicit UpgradeAgent(Plan plan) : plan_(plan) {}
    const FakeAgent& Agent() const { return agent_; }

  private:
    void Answer(int fd, const std::string& key, const std::string& text) {
        ++opened_;
        if (text == "GetInfo\n\r") return SendReply(fd, key, Info(opened_, version_, plan_.system));
        if (text == "GetSettings\n\r") return SendReply(fd, key, plan_.settings);
        if (text.starts_with("TEST-TextLog\n")) {
            return SendReply(fd, key,
                             "200\n" + std::string(attempts_ > 0 ? "5" : "0") +
                                 "\nUpgrade failed\n0\n9\n9\n9\n9\n\r");
        }
        Transfer(fd, key, text);
    }
    void Transfer(int fd, const std::string& key, const std::string& text) {
        int size = 0;
        ASSERT_EQ(sscanf(text.c_str(), "UpgradeCode\n%d\n\r", &size), 1);
        SendReply(fd, key, plan_.begin + "\n\r");
        if (plan_.begin != "200") return;
        std::string received, trailer;
        char buffer[1024];
        while (trailer.empty()) {
            ssize_t got = recv(fd, buffer, sizeof buffer, 0);
            ASSERT_GT(got, 0);
            std::string_view bytes(buffer, static_cast<size_t>(got));
            size_t missing = static_cast<size_t>(size) - received.size();
            received += bytes.substr(0, missing);
            if (bytes.size() > missing) trailer = bytes.substr(missing);
            if (received.size() > plan_.hangUpAfter) return;
            if (received.size() % 65536 < 1024) {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        }
        auto digest = Md5Digest(received.data(), received.size());
        std::string expected(digest.begin(), digest.end());
        if (plan_.module) *plan_.module = received;
        bool good = test::Decrypt(key, trailer) == expected && ++attempts_ > plan_.refusals;
        SendReply(fd, key, good ? "200\n\r" : "300\nWrong CRC\n\r");
        if (!good || !plan_.restarts) return;
        opened_ = 0;
        version_ = "1.37";
    }

    Plan plan_;
    int opened_ = 5;
    int attempts_ = 0;
    const char* version_ = "1.36";
    FakeAgent agent_{
        [this](int fd, const std::string& key, const std::string& text) { Answer(fd, key, text); }};
};

class Upgrade : public testing::Test {
  protected:
    ProgramRun Run(const UpgradeAgent& agent, const std::string& module, bool progress = false,
                   const char* limit = "-t60") {
        return ProgramRun(
            {agent.Agent().PortOption(), limit, "upgrade", dir_.Write("module", module)},
            {kTestPassword}, "", progress);
    }
    test::TempDir dir_;
};

TEST_F(Upgrade, SendsTheModuleAndReportsTheNewAgent) {
    // Sizes around the border of a receive, where the trailer would be split.
    for (size_t size :
         {size_t{101}, size_t{1023}, size_t{1024}, size_t{102400} - 8, size_t{10485759}}) {
        std::string module = Module(size);
        std::string received;
        module[size / 2] = '\0';
        {
            UpgradeAgent agent({.module = &received});
            ProgramRun run = Run(agent, module);
            EXPECT_EQ(run.status, kReplyOk) << run.err;
            EXPECT_EQ(run.out, "200\nAgentVersion=1.37\n");
            EXPECT_EQ(run.err, "");
        }
        EXPECT_TRUE(received == module) << size;
    }
}

TEST_F(Upgrade, RepeatsTheTransferWhenTheTrailerWasSplit) {
    UpgradeAgent agent({.refusals = 1});
    ProgramRun run = Run(agent, Module(5000), true);
    EXPECT_EQ(run.status, kReplyOk) << run.err;
    EXPECT_NE(run.err.find("] 100%\n"), std::string::npos);
}

TEST_F(Upgrade, TellsWhatWentWrong) {
    struct Case {
        UpgradeAgent::Plan plan;
        int status;
        const char* out;
        const char* err;
        const char* limit = "-t60";
    } cases[] = {
        {{.begin = "302"}, kReplyOther, "302\n", "ReloadApp"},
        {{.begin = "600\nOperation is not allowed"},
         kReplyOther,
         "600\nOperation is not allowed\n",
         ""},
        {{.hangUpAfter = 2000}, kNoReply, "", "the transfer was broken off"},
        {{.restarts = false}, kNoReply, "", "no new agent answers", "-t2"},
        {{.settings = "200\nLogBadConn=1\nBadLogFile=/log\n\r"},
         kNoReply,
         "",
         "the previous one is back"},
    };
    for (const Case& c : cases) {
        UpgradeAgent agent(c.plan);
        ProgramRun run = Run(agent, Module(5000), false, c.limit);
        EXPECT_EQ(run.status, c.status);
        EXPECT_EQ(run.out, c.out);
        EXPECT_NE(run.err.find(c.err), std::string::npos) << run.err;
    }
}

TEST_F(Upgrade, RefusesWhatTheHostCouldNotRunUnlessForced) {
    struct Case {
        std::string module;
        const char* message;
    } cases[] = {
        {std::string(500, 'm'), "neither an ELF executable nor a script"},
        {Elf(9, "/libexec/ld-elf.so.1"), "built for FreeBSD, and the host runs Linux"},
        {Elf(0, "/libexec/ld-elf.so.1"), "built for FreeBSD, and the host runs Linux"},
        {Elf(0, "/lib64/ld-linux-x86-64.so.2"), ""},
        {Elf(3, ""), ""},
    };
    for (const Case& c : cases) {
        UpgradeAgent agent({});
        ProgramRun run = Run(agent, c.module);
        EXPECT_EQ(run.status, *c.message ? kWrongUsage : kReplyOk) << run.err;
        EXPECT_NE(run.err.find(c.message), std::string::npos) << run.err;
        auto requests = agent.Agent().Requests();
        bool sent = std::any_of(requests.begin(), requests.end(), [](const std::string& text) {
            return text.starts_with("UpgradeCode");
        });
        EXPECT_EQ(sent, *c.message == '\0');
        ProgramRun forced({agent.Agent().PortOption(), "-t60", "upgrade", "--force",
                           dir_.Write("module", c.module)});
        EXPECT_EQ(forced.status, kReplyOk) << forced.err;
    }
}

TEST_F(Upgrade, RefusesFilesThatNoAgentTakesBeforeItConnects) {
    UpgradeAgent agent({});
    for (size_t size : {size_t{0}, size_t{100}, size_t{10485760}}) {
        ProgramRun run = Run(agent, Module(size));
        EXPECT_EQ(run.status, kWrongUsage) << size;
        EXPECT_NE(run.err.find(" bytes"), std::string::npos) << run.err;
    }
    for (const std::string& path : {dir_ / "missing", dir_.Path()}) {
        EXPECT_EQ(ProgramRun({agent.Agent().PortOption(), "upgrade", path}).status, kWrongUsage);
    }
    EXPECT_TRUE(agent.Agent().Requests().empty());
}

}  // namespace
}  // namespace zot::client
