#include "checks/scripts/run_process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#ifdef __linux__
#include <sys/mount.h>
#include <sys/prctl.h>
#endif
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "base/children.h"
#include "base/owners.h"
#include "checks/scripts/argument_list.h"
#include "checks/scripts/temp_name.h"
#include "tests/support/process_info.h"
#include "tests/support/temp_dir.h"

namespace zot {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr int64_t kLong = 30000;

double SecondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

bool NoChildIsLeft() { return waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD; }

class RunProcessTest : public testing::Test {
  protected:
    // The exit code as text, or the error text.
    std::string Run(const std::string& command, int64_t timeoutMs = kLong) const {
        int code = -1;
        VyString error;
        bool ran = RunProcessQuiet(command, {}, dir_.Path(), timeoutMs, code, error) == 1;
        return ran ? std::to_string(code) : std::string(error.View());
    }
    // What the command writes to output and error.
    std::string Output(const std::string& command, ChildOptions options = {}) const {
        std::string file = dir_ / "output";
        options.tmpDir = dir_.Path();
        options.stdoutPath = file;
        options.stderrPath = file;
        int code = -1;
        VyString error;
        EXPECT_EQ(RunProcess(command, options, kLong, code, error), 1) << error.View();
        std::string text = test::ReadFile(file);
        fs::remove(file);
        return text;
    }

    test::TempDir dir_;
};

TEST_F(RunProcessTest, EveryExitCodeComesAtOnceAndLeavesNothing) {
    const auto open = test::DescriptorsOf(getpid());
    auto start = Clock::now();
    for (int code = 0; code <= 255; ++code) {
        std::string text = std::to_string(code);
        ASSERT_EQ(Run("sh -c 'exit " + text + "'"), text);
    }
    // Polling once a second would take 256 seconds.
    EXPECT_LT(SecondsSince(start), 100);
    EXPECT_TRUE(NoChildIsLeft());
    EXPECT_EQ(test::DescriptorsOf(getpid()), open);
    EXPECT_TRUE(fs::is_empty(dir_.Path()));
}

TEST_F(RunProcessTest, ManyEndsAtOnceAreAllNoticed) {
    auto start = Clock::now();
    std::vector<std::thread> threads;
    for (int i = 0; i < 200; ++i) {
        threads.emplace_back([this] { EXPECT_EQ(Run("sh -c 'exit 3'"), "3"); });
    }
    for (std::thread& thread : threads) thread.join();
    // An end that was missed once is noticed when the time limit is over.
    EXPECT_LT(SecondsSince(start), kLong / 1000);
}

TEST_F(RunProcessTest, WhatCannotBeExecuted) {
    const std::string missing = "exec error: No such file or directory";
    EXPECT_EQ(Run("/no/such/program"), missing);
    EXPECT_EQ(Run("no-such-program-in-path"), missing);
    EXPECT_EQ(Run(""), missing);
    EXPECT_EQ(Run("/no/such/program", kDoNotWait), missing);
    std::string plain = dir_.Write("plain", "exit 9");
    EXPECT_EQ(Run(plain), "exec error: Permission denied");
    // Like a shell: a script that names no interpreter is run by sh, with its arguments.
    chmod(plain.c_str(), 0700);
    EXPECT_EQ(Run(plain), "9");
    EXPECT_EQ(Output(dir_.Write("plain", "echo $1-$2") + " 'a b' c"), "a b-c\n");
    // A program that leaves the marker itself and ends with 255 is believed.
    EXPECT_EQ(Run("sh -c 'echo my reason >$TMPDIR/tmpSzot-$$.txt; exit 255'"), "my reason");
    fs::remove(plain);
    EXPECT_TRUE(fs::is_empty(dir_.Path()));
}

TEST_F(RunProcessTest, NobodyElseTellsTheOutcome) {
    // A failed exec is reported even where no marker can be written.
    int code = 0;
    VyString error;
    EXPECT_FALSE(RunProcessQuiet("/no/such/program", {}, dir_ / "none", kLong, code, error));
    EXPECT_EQ(error, "exec error: No such file or directory");
    EXPECT_EQ(Run("sh -c 'f=$TMPDIR/tmpSzot-$$.txt; echo x >$f.own; ln $f.own $f; exit 255'"),
              "255");
    if (geteuid() != 0) GTEST_SKIP() << "only root can leave what belongs to somebody else";
    EXPECT_EQ(Run("sh -c 'f=$TMPDIR/tmpSzot-$$.txt; echo x >$f; chown 65534 $f; exit 255'"), "255");
}

#ifdef __linux__
TEST_F(RunProcessTest, AWorkingDirectoryThatHangsDoesNotHoldUpTheTimeout) {
    // A file system whose server never answers.
    std::string hung = dir_ / "hung";
    fs::create_directory(hung);
    UniqueFd server(open("/dev/fuse", O_RDWR | O_CLOEXEC));
    std::string options =
        "fd=" + std::to_string(server.Get()) + ",rootmode=40000,user_id=0,group_id=0";
    if (!server || mount("hung", hung.c_str(), "fuse", MS_NODEV, options.c_str()) != 0) {
        GTEST_SKIP() << "no such file system can be mounted here";
    }
    int code = 0;
    VyString error;
    auto start = Clock::now();
    EXPECT_FALSE(RunProcessQuiet("true", hung, dir_.Path(), 1000, code, error));
    EXPECT_EQ(error, "abnormal termination");
    EXPECT_LT(SecondsSince(start), 10);
    umount2(hung.c_str(), MNT_DETACH);
    server.Reset();
    while (!NoChildIsLeft()) ReapFinishedChildren();
}

TEST_F(RunProcessTest, OrphansAreReapedButNoStatusIsStolen) {
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    ExpectForeignChildren();
    std::atomic<bool> done{false};
    std::thread mainLoop([&done] {
        while (!done) ReapFinishedChildren();
    });
    for (int i = 0; i < 100; ++i) EXPECT_EQ(Run("sh -c '(true &) ; exit 7'"), "7");
    done = true;
    mainLoop.join();
    while (waitid(P_ALL, 0, nullptr, WEXITED | WNOHANG | WNOWAIT) == 0) ReapFinishedChildren();
    prctl(PR_SET_CHILD_SUBREAPER, 0);
    ExpectForeignChildren();
}
#endif

TEST_F(RunProcessTest, TheChildStartsClean) {
    // Dispositions and mask of the agent's thread, and a descriptor without close-on-exec.
    signal(SIGPIPE, SIG_IGN);
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
    int leak = open("/dev/null", O_RDONLY);
    EXPECT_EQ(Run("sh -c 'kill -PIPE $$'"), "abnormal termination");
    EXPECT_EQ(Run("sh -c 'kill -TERM $$'"), "abnormal termination");
    ASSERT_LT(leak, 10);  // a shell only knows one-digit descriptors
    EXPECT_EQ(Output("sh -c 'for n in 3 4 5 6 7 8 9; do (: <&$n) 2>&- && echo $n is open; done'"),
              "");
    EXPECT_EQ(Output("sh -c 'echo $TMPDIR'"), dir_.Path() + "\n");
    close(leak);
    pthread_sigmask(SIG_UNBLOCK, &blocked, nullptr);
    signal(SIGPIPE, SIG_DFL);
}

TEST_F(RunProcessTest, StreamsAndDirectory) {
    EXPECT_EQ(Output("sh -c 'echo one; echo two >&2; echo three'"), "one\ntwo\nthree\n");
    std::string input = dir_.Write("input", "from a file\n");
    ChildOptions options;
    options.stdinPath = input;
    EXPECT_EQ(Output("cat", options), "from a file\n");
    options.workDir = dir_.Path();
    EXPECT_EQ(Output("pwd", options), fs::canonical(dir_.Path()).string() + "\n");
    options.workDir = "/no/such/directory";  // ignored
    EXPECT_EQ(Output("cat", options), "from a file\n");
    // The marker is found although child and agent are in different directories.
    options.workDir = "/";
    options.tmpDir = ".";
    int code = 0;
    VyString error;
    EXPECT_EQ(RunProcess("/no/such", options, kLong, code, error), 0);
    EXPECT_EQ(error, "exec error: No such file or directory");
}

TEST_F(RunProcessTest, TheTimeoutCountsWholeSeconds) {
    const struct {
        int64_t timeoutMs;
        double killedAfter;
    } cases[] = {{-5, 0}, {1, 1}, {999, 1}, {1000, 2}};
    std::vector<std::thread> threads;
    for (const auto& one : cases) {
        threads.emplace_back([this, one] {
            auto start = Clock::now();
            EXPECT_EQ(Run("sleep 60", one.timeoutMs), "abnormal termination");
            EXPECT_GE(SecondsSince(start), one.killedAfter);
            EXPECT_LT(SecondsSince(start), one.killedAfter + 0.95) << one.timeoutMs;
        });
    }
    for (std::thread& thread : threads) thread.join();
}

TEST_F(RunProcessTest, ATimeoutEndsTheWholeGroup) {
    // It ignores polite requests, floods its output, and has a child that holds the pipe open.
    std::string pipe = dir_ / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    UniqueFd reader(open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    std::string script = dir_.Write(
        "script", "trap '' TERM HUP\nsleep 60 >" + pipe + " &\nwhile :; do echo flood; done\n");
    ChildOptions options;
    std::string output = dir_ / "output";
    options.tmpDir = dir_.Path();
    options.stdoutPath = output;
    int code = 0;
    VyString error;
    EXPECT_EQ(RunProcess("sh " + script, options, 1, code, error), 0);
    EXPECT_EQ(error, "abnormal termination");
    EXPECT_GT(fs::file_size(output), 1000U);
    pollfd waited = {reader.Get(), POLLIN, 0};
    EXPECT_EQ(poll(&waited, 1, 5000), 1);  // every writer is gone
}

TEST_F(RunProcessTest, StartedAndLeftRunning) {
    auto start = Clock::now();
    EXPECT_EQ(Run("sh -c 'exit 7'", kDoNotWait), "7");
    EXPECT_EQ(Run("sh -c 'kill -9 $$'", kDoNotWait), "0");
    EXPECT_LT(SecondsSince(start), 1.9);
    start = Clock::now();
    EXPECT_EQ(Run("sleep 1.2", kDoNotWait), "0");
    EXPECT_GE(SecondsSince(start), 1.0);
    ReapFinishedChildren();
    EXPECT_FALSE(NoChildIsLeft());
    siginfo_t info{};
    waitid(P_ALL, 0, &info, WEXITED | WNOWAIT);
    ReapFinishedChildren();
    EXPECT_TRUE(NoChildIsLeft());
}

TEST_F(RunProcessTest, WithoutFreeDescriptors) {
    rlimit before{};
    getrlimit(RLIMIT_NOFILE, &before);
    rlimit few = before;
    few.rlim_cur = 32;
    setrlimit(RLIMIT_NOFILE, &few);
    std::vector<UniqueFd> taken;
    for (int fd; (fd = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3)) >= 0;) taken.emplace_back(fd);
    auto start = Clock::now();
    std::string result;
    for (int i = 0; i < 3; ++i) result += Run("sh -c 'exit 5'");
    double took = SecondsSince(start);
    std::string killed = Run("sleep 60", 1);
    std::string marked = Run("/no/such/program");
    taken.clear();
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_EQ(killed, "abnormal termination");
    EXPECT_EQ(marked, "exec error: No such file or directory");
    EXPECT_TRUE(fs::is_empty(dir_.Path()));
    EXPECT_EQ(result, "555");
    EXPECT_LT(took, 2.9);
}

using Arguments = std::vector<std::string>;

Arguments Split(const std::string& line) {
    ArgumentList command(line);
    return {command.Arguments(), command.Arguments() + command.Count()};
}

TEST(ArgumentList, BlanksAndQuotes) {
    EXPECT_EQ(Split(""), Arguments());
    EXPECT_EQ(Split("  a  b\tc "), (Arguments{"a", "b", "c"}));
    EXPECT_EQ(Split("p 'a b' \"c 'd\""), (Arguments{"p", "a b", "c 'd"}));
    EXPECT_EQ(Split("p 'a'b '' 'open end "), (Arguments{"p", "a", "b", "", "open end "}));
    // A quote counts only at the start of an argument, and nothing else is special.
    EXPECT_EQ(Split("x=\"a b\" $HOME * >f \\n"),
              (Arguments{"x=\"a", "b\"", "$HOME", "*", ">f", "\\n"}));
}

TEST(ArgumentList, Limits) {
    std::string many;
    for (int i = 1; i <= 25; ++i) many += std::to_string(i) + " ";
    Arguments split = Split(many);
    ASSERT_EQ(split.size(), 23U);
    EXPECT_EQ(split.back(), "23");

    EXPECT_EQ(Split(std::string(1023, 'x')).size(), 1U);
    EXPECT_EQ(Split(std::string(1024, 'x')).size(), 0U);
    // 1,000 + 1 and 22 + 1 bytes fill the area; an argument that does not fit ends the splitting.
    std::string first(1000, 'x');
    EXPECT_EQ(Split(first + " " + std::string(22, 'y')).size(), 2U);
    EXPECT_EQ(Split(first + " " + std::string(23, 'y') + " z"), Arguments{first});
}

TEST(TempName, NamesAndRefusals) {
    char buffer[64];
    EXPECT_EQ(MakeTempName("/tmp", nullptr, 64, nullptr), 0);
    EXPECT_EQ(MakeTempName("/tmp", buffer, 15, "a"), 0);
    EXPECT_STREQ(buffer, "");
    EXPECT_EQ(MakeTempName("/tmp", buffer, sizeof buffer, "fixed.txt"), 1);
    EXPECT_STREQ(buffer, "/tmp/fixed.txt");
    EXPECT_EQ(MakeTempName("", buffer, sizeof buffer, "fixed.txt"), 1);
    EXPECT_STREQ(buffer, "/fixed.txt");
    // The directory and its "/" must leave 16 bytes.
    EXPECT_EQ(MakeTempName(std::string(47, 'd'), buffer, sizeof buffer, "f"), 1);
    EXPECT_EQ(MakeTempName(std::string(48, 'd'), buffer, sizeof buffer, "f"), 0);

    int64_t id = UniqueId();
    EXPECT_EQ(id >> 16, static_cast<uint32_t>(getpid()) << 16 >> 16);
    EXPECT_EQ(UniqueId(), id + 1);
    std::string expected = "/tmp/tmp-" + std::to_string(id + 2) + "-";
    EXPECT_EQ(MakeTempName("/tmp", buffer, sizeof buffer, nullptr), 1);
    EXPECT_EQ(std::string(buffer).substr(0, expected.size()), expected);
}

TEST(TempName, FilesArePrivateAndNeverReplaceWhatIsThere) {
    test::TempDir dir;
    std::string victim = dir.Write("victim", "precious");
    std::string next = "tmpPzot-" + std::to_string(UniqueId() + 1) + ".txt";
    fs::create_symlink(victim, dir / next);
    std::string path;
    {
        TempFile file;
        ASSERT_EQ(file.Create(dir.Path(), "tmpPzot-"), TempFile::Result::kCreated);
        path = file.Path();
        EXPECT_NE(path, dir / next);
        struct stat info {};
        ASSERT_EQ(stat(path.c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 07777, 0600U);
        EXPECT_TRUE(file.Write("text"));
    }
    EXPECT_FALSE(fs::exists(path));
    EXPECT_EQ(test::ReadFile(victim), "precious");

    TempFile none;
    EXPECT_EQ(none.Create(dir / "missing"), TempFile::Result::kNotCreated);
    EXPECT_EQ(none.Create(std::string(500, 'd')), TempFile::Result::kNoName);
}

}  // namespace
}  // namespace zot
