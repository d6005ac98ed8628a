#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdlib>
#include <string>

#include "checks/scripts/run_process.h"
#include "checks/scripts/script_checks.h"
#include "tests/support/temp_dir.h"

namespace zot {
namespace {

using Clock = std::chrono::steady_clock;

const std::string kScripts = ZOT_SOURCE_DIR "/scripts/";

class ProductScripts : public testing::Test {
  protected:
    ProductScripts() {
        settings_.tmpDir = dir_.Path();
        settings_.testProcess = settings_.testCpuUsage = 1;
        settings_.procCntScript = kScripts + "zot_proccnt.sh";
        settings_.procListScript = kScripts + "zot_proclist.sh";
        settings_.cpuUsageScript = kScripts + "linux/zot_cpu.sh";
    }
    std::string Count(const std::string& name) const {
        Reply reply;
        TestProcess("\n" + name + "\n\r", settings_, reply);
        return std::string(reply.Text().View());
    }
    // A program of its own name that runs for a while.
    std::string WriteSleeper(const std::string& name) const {
        std::string path = dir_.Write(name, "#!/bin/sh\nwhile :; do sleep 0.1; done\n");
        chmod(path.c_str(), 0700);
        return path;
    }

    test::TempDir dir_;
    AgentSettings settings_;
};

TEST_F(ProductScripts, CountsTextInCommandLines) {
    // The name is unique to this test run, since its directory is.
    std::string sleeper = WriteSleeper("sleeper");
    EXPECT_EQ(Count(sleeper), "200\n0\n");  // neither the script nor its shell
    int code = 0;
    VyString error;
    ASSERT_EQ(RunProcessQuiet(
                  "sh " + dir_.Write("start", sleeper + " 'one  [x]* $y' & echo $! >" +
                                                  (dir_ / "a") + "\n" + sleeper +
                                                  " 'one .' & echo $! >" + (dir_ / "b") + "\n"),
                  {}, dir_.Path(), 9000, code, error),
              1);
    EXPECT_EQ(Count(sleeper), "200\n2\n");
    EXPECT_EQ(Count("'" + sleeper + " one'"), "200\n2\n");
    EXPECT_EQ(Count(sleeper + " one ."), "200\n1\n");  // words of one name
    EXPECT_EQ(Count("'" + sleeper + " one  [x]* $y'"), "200\n1\n");
    EXPECT_EQ(Count("'" + sleeper + " one .*'"), "200\n0\n");
    for (const char* name : {"zot_proccnt", "'ZOT_NAME'"}) EXPECT_EQ(Count(name), "200\n0\n");

    auto start = Clock::now();
    Count("x");
    EXPECT_LT(Clock::now() - start, std::chrono::milliseconds(1000));

    Reply list;
    GetProcessesList("", settings_, list);
    EXPECT_NE(list.Text().View().find(sleeper + " one .%0D%0A"), std::string::npos);
    std::string kill = "kill -9 " + test::ReadFile(dir_ / "a") + " " + test::ReadFile(dir_ / "b");
    for (char& c : kill) c = c == '\n' ? ' ' : c;
    RunProcessQuiet(kill, {}, dir_.Path(), 9000, code, error);
}

TEST_F(ProductScripts, CpuUsage) {
    Reply reply;
    TestCpu("", settings_, reply);
    ASSERT_EQ(reply.Code(), "200");
    double usage = std::atof(reply.Text().Data() + 4);
    EXPECT_GE(usage, 0);
    EXPECT_LE(usage, 100);

    // The other system's script, on a system call that says 25 busy of 200 ticks.
    std::string fake = dir_.Write("sysctl",
                                  "#!/bin/sh\n[ \"$*\" = '-n kern.cp_time' ] || exit 1\n"
                                  "if [ -e $0.seen ]; then echo 110 3 12 5 1175; else\n"
                                  ">$0.seen; echo 100 1 2 2 1000; fi\n");
    chmod(fake.c_str(), 0700);
    int code = 0;
    VyString error;
    std::string output = dir_ / "output";
    ChildOptions options = {dir_.Path(), {}, {}, output, output};
    ASSERT_EQ(
        RunProcess("env PATH=" + dir_.Path() + ":/usr/bin:/bin " + kScripts + "freebsd/zot_cpu.sh",
                   options, 9000, code, error),
        1);
    EXPECT_EQ(test::ReadFile(output), "12.50\n");
}

}  // namespace
}  // namespace zot
