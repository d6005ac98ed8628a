// What must not be told: passwords in logs, command lines and memory that is no longer used, and
// files that others could read.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "base/owners.h"
#include "tests/support/agent_process.h"

namespace zot::test {
namespace {

namespace fs = std::filesystem;

// How often the text stands in the writable memory of a process; -1 where that cannot be read.
int CountInMemory(pid_t pid, const std::string& text) {
    std::string folder = "/proc/" + std::to_string(pid);
    std::ifstream maps(folder + "/maps");
    UniqueFd memory(open((folder + "/mem").c_str(), O_RDONLY | O_CLOEXEC));
    if (!maps || !memory) return -1;
    int count = 0;
    for (std::string line; std::getline(maps, line);) {
        size_t start = 0;
        size_t end = 0;
        char rights[5] = "";
        if (sscanf(line.c_str(), "%zx-%zx %4s", &start, &end, rights) != 3) continue;
        // A checker's shadow memory is larger than any machine.
        if (rights[1] != 'w' || end - start > size_t{256} << 20) continue;
        std::string bytes(end - start, '\0');
        ssize_t got = pread(memory.Get(), bytes.data(), bytes.size(), static_cast<off_t>(start));
        bytes.resize(static_cast<size_t>(std::max<ssize_t>(got, 0)));
        for (size_t at = bytes.find(text); at != std::string::npos; at = bytes.find(text, at + 1))
            ++count;
    }
    return count;
}

TEST(Secrets, APasswordThatWasReplacedIsNowhere) {
    AgentProcess agent({.arguments = {"-d", "-vd"},
                        .settings = "verboselogfile=verbose.txt\nlogsuccess=1\nlogfails=1\n"});
    client::Target target = agent.Target();
    // An allocator writes over the beginning of what is freed, so the end is what is sought.
    const std::string tail = "the end of the first secret";
    const std::string first = std::string(80, '-') + tail;
    auto ask = [&](const std::string& command, const std::vector<std::string>& params) {
        client::Answer answer;
        EXPECT_TRUE(TryAsk(target, command, params, &answer)) << command;
        return answer.code;
    };
    EXPECT_EQ(ask("SetSettings", {"Password=" + first}), "200");
    target.password = first;
    // Every way on which the password is read, sent and written, and packets with a wrong one.
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(ask("GetSettings", {}), "200");
        EXPECT_EQ(ask("ReloadCfg", {}), "200");
        EXPECT_EQ(ask("SetSettings", {"Comment=x", "Password=" + first}), "200");
    }
    if (CountInMemory(agent.Pid(), tail) < 0) GTEST_SKIP() << "no /proc/PID/mem";
    EXPECT_GE(CountInMemory(agent.Pid(), tail), 1) << "the search finds what is in use";
    // A shorter one lies in the same buffer, a longer one in another.
    for (const std::string& next : {std::string("short"), std::string(300, '+')}) {
        EXPECT_EQ(ask("SetSettings", {"Password=" + next}), "200");
        target.password = next;
        EXPECT_EQ(ask("GetSettings", {}), "200");
        EXPECT_TRUE(WaitUntil([&] { return CountInMemory(agent.Pid(), tail) == 0; },
                              std::chrono::milliseconds(3000)))
            << CountInMemory(agent.Pid(), tail) << " copies beside " << next;
        EXPECT_EQ(ask("SetSettings", {"Password=" + first}), "200");
        target.password = first;
    }

    for (const auto& entry : fs::directory_iterator(agent.Dir().Path())) {
        std::string name = entry.path().filename();
        struct stat info {};
        ASSERT_EQ(stat(entry.path().c_str(), &info), 0);
        if (name.starts_with("verbose") || name.starts_with("log")) {
            std::string text = ReadFile(entry.path());
            EXPECT_NE(text, "") << name;
            EXPECT_EQ(text.find(tail), std::string::npos) << name;
            EXPECT_EQ(info.st_mode & 0137, 0u) << name;
        }
    }
    std::string arguments = ReadFile("/proc/" + std::to_string(agent.Pid()) + "/cmdline");
    EXPECT_EQ(arguments.find(tail), std::string::npos);
    EXPECT_EQ(ask("QUIT", {}), "200");
    EXPECT_TRUE(agent.WaitForDaemonEnd());
}

}  // namespace
}  // namespace zot::test
