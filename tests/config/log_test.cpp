#include "config/log.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "base/owners.h"
#include "config/log_file.h"
#include "tests/support/temp_dir.h"

namespace zot {
namespace {

class LogFile : public ::testing::Test {
  protected:
    LogFile() {
        setenv("TZ", "XYZ-05:45", 1);  // east of UTC, not by a whole hour
        tzset();
        Set([this](AgentSettings& settings) {
            strcpy(settings.configPath, (dir_ / "zot.cfg").c_str());
            settings.okLogFile = "ok";
            settings.badLogFile = "bad";
            settings.verboseLogFile = dir_ / "verbose";
        });
    }
    ~LogFile() override { unsetenv("TZ"); }

    void Set(const std::function<void(AgentSettings&)>& change) {
        store_.Change([&](AgentSettings& settings) {
            change(settings);
            return 1;
        });
    }
    std::string Read(const char* name) const { return test::ReadFile(dir_ / name); }
    // The text with its date and time replaced, if they are the current ones.
    static std::string WithoutTime(const std::string& text) {
        time_t now = time(nullptr);
        for (time_t then = now - 5; then <= now; ++then) {
            struct tm parts {};
            localtime_r(&then, &parts);
            char stamp[64];
            strftime(stamp, sizeof(stamp), "[%m/%d/%Y %H:%M:%S]", &parts);
            if (text.starts_with(stamp)) return "[now]" + text.substr(strlen(stamp));
        }
        return text;
    }

    test::TempDir dir_;
    SettingsStore store_;
};

TEST_F(LogFile, KindsGoToTheirFiles) {
    Log log(store_);
    struct {
        int logSuccess, logFails, verbose, debug;
        const char *ok, *bad, *all;
    } cases[] = {
        {0, 0, 0, 0, "", "", ""},      {1, 0, 0, 1, "0", "", ""},    {0, 1, 0, 1, "", "1", ""},
        {1, 1, 1, 0, "0", "1", "013"}, {0, 0, 1, 1, "", "", "0123"},
    };
    for (const auto& c : cases) {
        for (const char* name : {"ok", "bad", "verbose"}) unlink((dir_ / name).c_str());
        Set([&](AgentSettings& settings) {
            settings.logSuccess = c.logSuccess;
            settings.logFails = c.logFails;
            settings.verbose = c.verbose;
            settings.debug = c.debug;
        });
        for (int kind = 0; kind < 4; ++kind) log.WriteLog(LogKind{kind}, 0, "<%d>", kind);
        auto kinds = [this](const char* name) {
            std::string found, text = Read(name);
            for (size_t at = 0; (at = text.find('<', at)) != text.npos;) found += text[++at];
            return found;
        };
        EXPECT_EQ(kinds("ok"), c.ok);
        EXPECT_EQ(kinds("bad"), c.bad);
        EXPECT_EQ(kinds("verbose"), c.all);
        EXPECT_EQ(access((dir_ / "ok").c_str(), F_OK) == 0, *c.ok != '\0');
    }
}

TEST_F(LogFile, LineFormats) {
    Set([](AgentSettings& settings) { settings.logFails = settings.interactive = 1; });
    Log log(store_);
    testing::internal::CaptureStdout();
    errno = ENOENT;
    log.WriteLog(LogKind::kFailure, inet_addr("192.168.100.200"), "%s %d\n", "a", 7);
    EXPECT_EQ(errno, ENOENT);
    log.WriteLogText(LogKind::kFailure, 0, "100%n\n");
    std::string console = testing::internal::GetCapturedStdout();
    std::string file = Read("bad");
    std::string first = file.substr(0, file.find('\n') + 1);
    std::string second = file.substr(first.size());
    EXPECT_EQ(WithoutTime(first), "[now]\t 192.168.100.200\t a 7\n");
    EXPECT_EQ(WithoutTime(second), "[now]\t zot\t\t 100%n\n");
    EXPECT_EQ(console, "[zot][" + first.substr(12) + "[zot][" + second.substr(12));
    struct stat info {};
    ASSERT_EQ(stat((dir_ / "bad").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777 & ~0640u, 0u);
}

TEST_F(LogFile, MessagesAndLinesAreCut) {
    Set([](AgentSettings& settings) { settings.logSuccess = 1; });
    Log log(store_);
    std::string message = std::string(600, 'x') + "\n";
    log.WriteLogText(LogKind::kSuccess, 0, message);
    log.WriteLog(LogKind::kSuccess, 0, "%s", message.c_str());
    EXPECT_EQ(WithoutTime(Read("ok")).substr(0, 14), "[now]\t zot\t\t x");
    EXPECT_EQ(Read("ok").substr(511, 3), Read("ok").substr(0, 3));
    EXPECT_EQ(Read("ok").size(), 2 * 511u);
}

TEST_F(LogFile, SignalHandlersWriteTheSameLine) {
    Set([](AgentSettings& settings) {
        settings.logFails = settings.verbose = settings.interactive = 1;
    });
    Log log(store_);
    testing::internal::CaptureStdout();
    log.WriteFromSignal(*store_.Snapshot(), LogKind::kFailure, "Restarting..\n");
    std::string console = testing::internal::GetCapturedStdout();
    EXPECT_EQ(WithoutTime(Read("bad")), "[now]\t zot\t\t Restarting..\n");
    EXPECT_EQ(Read("verbose"), Read("bad"));
    EXPECT_EQ(console, "[zot][" + Read("bad").substr(12));
}

TEST_F(LogFile, PathsAndPlacesThatAreNoFiles) {
    AgentSettings settings = *store_.Snapshot();
    AppendLogLine(settings, "", "x");
    AppendLogLine(settings, "/nowhere/log", "x");
    AppendLogLine(settings, std::string(5000, 'x'), "x");
    std::string fifo = dir_ / "fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    AppendLogLine(settings, "fifo", "no reader, no waiting");
    UniqueFd reader(open(fifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    AppendLogLine(settings, "fifo", "to a reader\n");
    char text[64] = "";
    EXPECT_EQ(read(reader.Get(), text, sizeof text), 12);
    EXPECT_STREQ(text, "to a reader\n");
    AppendLogLine(settings, "/dev/null", "x");
    AppendLogLine(settings, "beside", "1\n");
    AppendLogLine(settings, "beside", "2\n");
    EXPECT_EQ(Read("beside"), "1\n2\n");
}

TEST_F(LogFile, ABrokenLogIsToldOnceOnAnother) {
    Log log(store_);
    const std::string told = "[now]\t zot\t\t Cannot write log ok: Is a directory\n";
    mkdir((dir_ / "ok").c_str(), 0700);
    Set([](AgentSettings& settings) { settings.logSuccess = settings.logFails = true; });
    log.WriteLogText(LogKind::kSuccess, 0, "1\n");
    EXPECT_EQ(WithoutTime(Read("bad")), told);
    log.WriteLogText(LogKind::kSuccess, 0, "2\n");
    EXPECT_EQ(WithoutTime(Read("bad")), told) << "once";
    rmdir((dir_ / "ok").c_str());
    log.WriteLogText(LogKind::kSuccess, 0, "3\n");
    EXPECT_EQ(WithoutTime(Read("ok")), "[now]\t zot\t\t 3\n");
    // A failure of the log of failures itself is noted in the log of successes where there is no
    // verbose log.
    mkdir((dir_ / "broken").c_str(), 0700);
    Set([](AgentSettings& settings) { settings.badLogFile = "broken"; });
    unlink((dir_ / "ok").c_str());
    log.WriteLogText(LogKind::kFailure, 0, "4\n");
    EXPECT_EQ(WithoutTime(Read("ok")), "[now]\t zot\t\t Cannot write log broken: Is a directory\n");
}

TEST_F(LogFile, LinesOfManyThreadsStayWhole) {
    Set([](AgentSettings& settings) { settings.logSuccess = settings.verbose = 1; });
    Log log(store_);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&log, i] {
            std::optional<LogBatch> batch;
            if (i % 2 == 0) batch.emplace(log);
            for (int n = 0; n < 250; ++n) log.WriteLog(LogKind::kSuccess, 0, "%0200d.\n", n);
        });
    }
    for (auto& thread : threads) thread.join();
    std::string text = Read("ok");
    EXPECT_EQ(text, Read("verbose"));
    ASSERT_EQ(text.size(), 1000u * (29 + 202));
    for (size_t at = 0; at < text.size(); at += 29 + 202) {
        std::string line = text.substr(at, 29 + 202);
        EXPECT_EQ(line.substr(0, 1) + line.substr(20, 10) + line.substr(229), "[]\t zot\t\t 0.\n");
    }
}

}  // namespace
}  // namespace zot
