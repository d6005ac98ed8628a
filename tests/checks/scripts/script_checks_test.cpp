#include "checks/scripts/script_checks.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "checks/scripts/run_process.h"
#include "tests/support/checkers.h"
#include "tests/support/temp_dir.h"

namespace zot {
namespace {

namespace fs = std::filesystem;
using Handler = void (*)(std::string_view, const AgentSettings&, Reply&);

class ScriptChecks : public testing::Test {
  protected:
    ScriptChecks() {
        fs::create_directory(dir_ / "tmp");
        settings_.tmpDir = dir_ / "tmp";
    }
    void TearDown() override { EXPECT_TRUE(fs::is_empty(dir_ / "tmp")); }

    std::string Ask(Handler handler, const std::string& params) const {
        Reply reply;
        handler(params, settings_, reply);
        return std::string(reply.Text().View());
    }
    std::string WriteScript(const std::string& body) const {
        std::string path = dir_.Write("script.sh", "#!/bin/sh\n" + body);
        chmod(path.c_str(), 0700);
        return path;
    }

    test::TempDir dir_;
    AgentSettings settings_;
};

TEST_F(ScriptChecks, Refusals) {
    const struct {
        Handler handler;
        VyString AgentSettings::*script;
        const char* label;
    } configured[] = {{TestProcess, &AgentSettings::procCntScript, "ProcCnt"},
                      {GetProcessesList, &AgentSettings::procListScript, "ProcList"},
                      {TestCpu, &AgentSettings::cpuUsageScript, "CPUUsage"}};
    for (const auto& one : configured) {
        std::string label = std::string("301\n") + one.label;
        EXPECT_EQ(Ask(one.handler, "\r"), label + " script is not speified\n");
        settings_.*one.script = dir_.Path();
        EXPECT_EQ(Ask(one.handler, "\r"), label + " script doesn't exist\n");
    }
    settings_.procCntScript = WriteScript("echo 1");
    EXPECT_EQ(Ask(TestProcess, "\n \n\r"), "501\nName of the process is not specified\n");
    std::string usual = settings_.tmpDir.Data();
    settings_.tmpDir = std::string(500, 'd');
    EXPECT_EQ(Ask(TestProcess, "\nname\n\r"), "301\ncannot get temp file\n");
    EXPECT_EQ(Ask(TestShellScript, "%script% x\necho\n\n5\n1\n\r"), "301\nCannot get temp file\n");
    settings_.tmpDir = "/no/such/directory";
    EXPECT_EQ(Ask(TestProcess, "\nname\n\r"), "301\nCannot get script results\n");
    EXPECT_EQ(Ask(TestShellScript, "%script% x\necho\n\n5\n1\n\r"),
              "301\nCannot create temp file\n");
    settings_.tmpDir = dir_ / "tmp";
    // No room to write the script.
    signal(SIGXFSZ, SIG_IGN);
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    rlimit none = before;
    none.rlim_cur = 0;
    setrlimit(RLIMIT_FSIZE, &none);
    std::string reply = Ask(TestShellScript, "%script% x\necho\n\n5\n1\n\r");
    setrlimit(RLIMIT_FSIZE, &before);
    signal(SIGXFSZ, SIG_DFL);
    EXPECT_EQ(reply, "301\ncannot create temp file\n");
}

TEST_F(ScriptChecks, ProcessCount) {
    settings_.procCntScript = WriteScript("echo \" 7$#: $1\"");
    EXPECT_EQ(Ask(TestProcess, "\nsome name\n\r"), "200\n72\n");
    settings_.procCntScript = WriteScript("echo \"$1\"");
    EXPECT_EQ(Ask(TestProcess, "\n-12x\n\r"), "200\n-12\n");
    EXPECT_EQ(Ask(TestProcess, "\nnone\n\r"), "301\nScript error\n");
    // The shell interprets the name.
    EXPECT_EQ(Ask(TestProcess, "\n$((40+2))\n\r"), "200\n42\n");
    // If the shell cannot open the file there are no results.
    EXPECT_EQ(Ask(TestProcess, "\na\"b\n\r"), "301\nCannot get script results\n");
    EXPECT_EQ(Ask(TestProcess, "\n3 #\n\r"), "301\nCannot get script results\n");
    settings_.procCntScript = WriteScript("rm -f " + (dir_ / "tmp/tmpPzot-*"));
    EXPECT_EQ(Ask(TestProcess, "\nname\n\r"), "301\nCannot get script results\n");
}

TEST_F(ScriptChecks, CpuAndProcessList) {
    settings_.cpuUsageScript = WriteScript("echo; echo 12.345 rest");
    EXPECT_EQ(Ask(TestCpu, ""), "200\n12.3450\n");
    settings_.cpuUsageScript = WriteScript("echo 3 >&2; exit 255");  // its own code does not matter
    EXPECT_EQ(Ask(TestCpu, ""), "200\n3.0000\n");
    settings_.cpuUsageScript = WriteScript("cat; echo idle");
    EXPECT_EQ(Ask(TestCpu, ""), "301\nScript error\n");
    settings_.cpuUsageScript = WriteScript("kill -9 $$");
    EXPECT_EQ(Ask(TestCpu, ""), "301\nCannot execute script\n");

    std::string longLine(520, 'x');
    settings_.procListScript = WriteScript("printf 'one\\n\\ntwo\\r\\n" + longLine + "'");
    EXPECT_EQ(Ask(GetProcessesList, ""), "200\none%0D%0A%0D%0Atwo%0D%0D%0A" +
                                             longLine.substr(0, 511) + "%0D%0A" +
                                             longLine.substr(511) + "%0D%0A\n");
}

TEST_F(ScriptChecks, ExternalProgramAndAction) {
    EXPECT_EQ(Ask(TestExternalPrg, "sh -c 'exit 3'\n\n\n5000\n\r"), "200\n3\n");
    EXPECT_EQ(Ask(TestExternalPrg, "/no/such\n\n\n5000\n\r"),
              "301\nexec error: No such file or directory\n");
    EXPECT_EQ(Ask(TestExternalPrg, "true\n\n\nsoon\n\r"), "501\nWrong parameter\n");
    EXPECT_EQ(Ask(TestExternalPrg, " \n\n\n5000\n\r"), "501\n");  // no text, as it always was

    EXPECT_EQ(Ask(ActExternalCmd, " sh -c 'exit 4' \n\n1\n5000\n\r"), "200\n4\n");
    EXPECT_EQ(Ask(ActExternalCmd, "cp /dev/null made\n" + dir_.Path() + "\n1\n5000\n\r"),
              "200\n0\n");
    EXPECT_TRUE(fs::exists(dir_ / "made"));
    EXPECT_EQ(Ask(ActExternalCmd, "true\n\nabc\n5000\n\r"), "501\nWrong parameter\n");
    EXPECT_EQ(Ask(ActExternalCmd, "\n\n1\n\n\r"), "501\nWrong parameter\n");
    EXPECT_EQ(Ask(ActExternalCmd, "\n\n1\n5000\n\r"),
              "501\nCommand line to execute is not specified\n");
}

TEST_F(ScriptChecks, ShellScriptResultsAndBudget) {
    const std::string script =
        "#!/bin/sh%0D%0Aecho \"  first $* \"%0D%0A%0Aecho; echo scriptres:good; echo last "
        ">&2%0D%0A";
    auto ask = [&](const std::string& budget) {
        return Ask(TestShellScript,
                   "%SCRIPT% %Params%\n" + script + "\na 'b  c'\n5\n" + budget + "\n\r");
    };
    EXPECT_EQ(ask("9"), "200\nscriptres:good\nfirst a b  c%0D%0Ascriptres:good%0D%0Alast%0D%0A\n");
    EXPECT_EQ(ask("1"), "200\nscriptres:good\nfirst a b  c%0D%0A\n");
    EXPECT_EQ(ask("0"), "200\nscriptres:good\n\n");
    EXPECT_EQ(Ask(TestShellScript, "sh %script%\necho one; echo two\nx\n5\n1\n\r"),
              "200\ntwo\none%0D%0A\n");
    EXPECT_EQ(Ask(TestShellScript, "sh %script%\n:\nx\n5\n1\n\r"), "200\n\n\n");
    EXPECT_EQ(Ask(TestShellScript, "sh %script%\nkill -9 $$\nx\n5\n1\n\r"),
              "301\nScript execution error: abnormal termination\n");
    // A blank line is skipped in favour of the next one, so without parameters the time-out becomes
    // one.
    EXPECT_EQ(Ask(TestShellScript, "sh %script% %params% .\necho $1\n\n5\n1\n\r"),
              "200\n5\n5%0D%0A\n");
}

TEST_F(ScriptChecks, TemplateMarkersAtTheEnd) {
    auto ask = [&](const std::string& commandTemplate) {
        return Ask(TestShellScript, commandTemplate + "\necho \"$1\"\nP\n5\n1\n\r");
    };
    EXPECT_EQ(ask("%script%"),
              "301\nScript execution error: exec error: No such file or directory\n");
    EXPECT_EQ(ask("sh %script% %params%%params%"), "200\nP%params%\nP%params%%0D%0A\n");
    EXPECT_EQ(ask("sh %script% %params%%params%."), "200\nPP.\nPP.%0D%0A\n");
}

// A request of 200 KB asks for lines of a gigabyte; the answers are the ones that such lines would
// have given.
TEST_F(ScriptChecks, ManyMarkersTimesALongValueAreNeverBuilt) {
    auto ask = [&](const std::string& commandTemplate, const std::string& params) {
        return Ask(TestShellScript, commandTemplate + "\necho $#\n" + params + "\n5\n1\n\r");
    };
    std::string many = "sh %script% ";
    for (int i = 0; i < 12000; ++i) many += "%params% ";
    const std::string gap = "a" + std::string(3000, ' ') + "b";
    rusage before{}, after{};
    getrusage(RUSAGE_SELF, &before);
    const struct {
        std::string commandTemplate, params;
        int arguments;
    } cases[] = {{many, std::string(100000, 'x'), 0},
                 {many, "a b", 21},
                 {many, gap, 21},
                 {many, "''", 21},
                 {"sh %script% %params% .", gap, 3},
                 {"sh %script% . '%params%' .", gap, 1}};
    for (const auto& c : cases) {
        std::string count = std::to_string(c.arguments);
        EXPECT_EQ(ask(c.commandTemplate, c.params), "200\n" + count + "\n" + count + "%0D%0A\n")
            << c.params.substr(0, 9);
    }
    getrusage(RUSAGE_SELF, &after);
    // A checker keeps freed memory for a while.
    if (test::kMeasurable) {
        EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 100 << 10) << "KiB";
    }
}

TEST_F(ScriptChecks, TwoHundredShellScriptsAtOnce) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 200; ++i) {
        threads.emplace_back([this, i] {
            std::string own = std::to_string(i);
            EXPECT_EQ(Ask(TestShellScript, "%script% %params%\n#!/bin/sh%0Aecho " + own +
                                               ".$1%0Aecho scriptres:" + own + "\n" + own +
                                               "\n60\n1\n\r"),
                      "200\nscriptres:" + own + "\n" + own + "." + own + "%0D%0A\n");
        });
    }
    for (std::thread& thread : threads) thread.join();
}

// The scripts that come with the agent.
class ProductScripts : public ScriptChecks {
  protected:
    ProductScripts() {
        settings_.procCntScript = kScripts + "zot_proccnt.sh";
        settings_.procListScript = kScripts + "zot_proclist.sh";
        settings_.cpuUsageScript = kScripts + ZOT_CPU_SCRIPT;
    }
    std::string Count(const std::string& name) const {
        return Ask(TestProcess, "\n" + name + "\n\r");
    }

    const std::string kScripts = ZOT_SOURCE_DIR "/scripts/";
};

TEST_F(ProductScripts, CountsTextInCommandLines) {
    // The name is unique to this test run, because its directory is. It has no children, which
    // would have its command line until they execute their own.
    const std::string silence = dir_ / "silence";
    ASSERT_EQ(mkfifo(silence.c_str(), 0600), 0);
    std::string sleeper = WriteScript("read line <" + silence + "\n");
    EXPECT_EQ(Count(sleeper), "200\n0\n");  // neither the script nor its shell
    int code = 0;
    VyString error;
    ASSERT_EQ(RunProcessQuiet(
                  "sh " + dir_.Write("start", sleeper + " 'one  [x]* $y é\\b' & echo $! >" +
                                                  (dir_ / "a") + "\n" + sleeper +
                                                  " 'one .' & echo $! >" + (dir_ / "b") + "\n"),
                  {}, dir_.Path(), 60000, code, error),
              1);
    EXPECT_EQ(Count(sleeper), "200\n2\n");
    EXPECT_EQ(Count("'" + sleeper + " one'"), "200\n2\n");
    EXPECT_EQ(Count(sleeper + " one ."), "200\n1\n");  // words of one name
    EXPECT_EQ(Count("'" + sleeper + " one  [x]* $y'"), "200\n1\n");
    EXPECT_EQ(Count("'" + sleeper + " one  [x]* $y é\\b'"), "200\n1\n");
    EXPECT_EQ(Count("'" + sleeper + " one .*'"), "200\n0\n");
    for (const char* name : {"zot_proccnt", "'ZOT_NAME'"}) EXPECT_EQ(Count(name), "200\n0\n");

    EXPECT_NE(Ask(GetProcessesList, "").find(sleeper + " one .%0D%0A"), std::string::npos);
    std::string kill = "kill -9 " + test::ReadFile(dir_ / "a") + " " + test::ReadFile(dir_ / "b");
    for (char& c : kill) c = c == '\n' ? ' ' : c;
    RunProcessQuiet(kill, {}, dir_.Path(), 60000, code, error);
}

TEST_F(ProductScripts, TheListHasNothingOfItsOwn) {
    const std::string script = kScripts + "zot_proclist.sh";
    std::string fake = dir_.Write("ps", "#!/bin/sh\ncat <<'END'\n  1   0 init\n 10   1 sh -c -- " +
                                            script + " 1>/x\n 11  10 /bin/sh " + script +
                                            "\n 12  11 ps -A\n 20   1 a\\\\b  é\nEND\n");
    std::string name = dir_.Write("uname", "#!/bin/sh\necho FreeBSD\n");
    for (const std::string& file : {fake, name}) chmod(file.c_str(), 0700);
    int code = 0;
    VyString error;
    std::string output = dir_ / "output";
    ChildOptions options = {dir_.Path(), {}, {}, output, output};
    ASSERT_EQ(RunProcess("env PATH=" + dir_.Path() + ":/usr/bin:/bin " + script, options, 9000,
                         code, error),
              1);
    EXPECT_EQ(test::ReadFile(output), "init\na\\b  é\n");
}

TEST_F(ProductScripts, CpuUsage) {
    std::string reply = Ask(TestCpu, "");
    ASSERT_EQ(reply.substr(0, 4), "200\n");
    double usage = std::atof(reply.c_str() + 4);
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
