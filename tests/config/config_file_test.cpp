#include "config/config_file.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstring>
#include <string>

#include "config/config_save.h"
#include "tests/support/file_tree.h"
#include "tests/support/temp_dir.h"

namespace zot {
namespace {

using namespace std::string_literals;

constexpr const char* kMarksWarning = "FilterMarks has less items than FilterList";

class ConfigFile : public ::testing::Test {
  protected:
    ConfigFile() {
        setenv("TMPDIR", dir_.Path().c_str(), 1);
        agent_ = dir_.Write("zot", "");
    }
    ~ConfigFile() override { unsetenv("TMPDIR"); }

    int Load(const std::string& content) {
        std::string path = dir_.Write("zot.cfg", content);
        strcpy(settings_.configPath, path.c_str());
        return LoadConfig(settings_, error_);
    }
    std::string Minimal() const { return "port=1055\npassword=p\nzotpath=" + agent_ + "\n"; }

    test::TempDir dir_;
    std::string agent_;
    AgentSettings settings_;
    VyString error_;
};

TEST_F(ConfigFile, EmptyFileLoadsTheDefaultsAndTellsWhatIsMissing) {
    settings_.filterActive = 1;
    settings_.testSnmp = 0;
    EXPECT_EQ(Load("# only this\r\n"), 0);
    EXPECT_EQ(error_, std::string(kMarksWarning) +
                          "  TCP post is not specified!\n  Password is not specified!\n"
                          "  Full path to the agent is not specified!\n");
    EXPECT_EQ(settings_.filterList, "1");
    EXPECT_EQ(settings_.filterMarks, "127.0.0.1");
    EXPECT_EQ(settings_.activeFilter, "\r\n1\r\n");
    EXPECT_EQ(settings_.manageAddr, "127.0.0.1");
    EXPECT_EQ(settings_.badLogFile, "log2.txt");
    EXPECT_EQ(settings_.timeout, 4000);
    EXPECT_EQ(settings_.delayForScripts, 90000);
    EXPECT_EQ(settings_.filterActive, 0);
    EXPECT_EQ(settings_.logFails, 1);
    EXPECT_EQ(settings_.testSnmp, 1);
    EXPECT_EQ(settings_.testShellScript, 1);
    EXPECT_EQ(settings_.actSyslog, 0);
}

TEST_F(ConfigFile, WhereTheFileCannotBeRead) {
    EXPECT_EQ(LoadConfig(settings_, error_), 0);
    EXPECT_EQ(error_, "Configuration file is not specified");
    test::MakeFifo(dir_ / "fifo");
    for (const std::string& path : {dir_ / "absent", dir_.Path(), dir_ / "fifo"}) {
        strcpy(settings_.configPath, path.c_str());
        EXPECT_EQ(SaveConfig(settings_, error_), 0);
        EXPECT_EQ(LoadConfig(settings_, error_), 0);
        EXPECT_EQ(error_, "Cannot open configuration file '" + path + "'");
        EXPECT_EQ(settings_.okLogFile, "log1.txt");  // the defaults apply nevertheless
    }
}

TEST_F(ConfigFile, LineSyntax) {
    EXPECT_EQ(Load(Minimal() + ";host=a\n  #host=b\nhost\nunknown=1\n \tHoSt \t=\t c=d e \t\r\n"
                               "unc=true\ntcp=1es\nudp=\nTimeout= 12ms\ncomment=x\ncomment=y"),
              1);
    EXPECT_EQ(settings_.host, "c=d e");
    EXPECT_EQ(settings_.testUnc, 0);
    EXPECT_EQ(settings_.testTcp, 1);
    EXPECT_EQ(settings_.testUdp, 0);
    EXPECT_EQ(settings_.timeout, 12);
    EXPECT_EQ(settings_.comment, "y");
    Load("timeout=soon\ndelayforscripts=-99999999999\nhost=a\0b\n"s);
    EXPECT_EQ(settings_.timeout, 4000);
    EXPECT_EQ(settings_.delayForScripts, INT32_MIN);
    EXPECT_EQ(settings_.host, "a");  // a text ends at its NUL
}

TEST_F(ConfigFile, PiecesOfALongLineAreLinesOfTheirOwn) {
    std::string comment = "comment=" + std::string(1023 - 8, 'x');
    ASSERT_EQ(Load(Minimal() + comment + "host=h\n" + "#" + std::string(1022, ' ') + "udp=0\n"), 1);
    EXPECT_EQ(settings_.comment, comment.substr(8));
    EXPECT_EQ(settings_.host, "h");
    EXPECT_EQ(settings_.testUdp, 0);
}

TEST_F(ConfigFile, ReloadResetsOnlyWhatHasADefault) {
    ASSERT_EQ(Load(Minimal() + "port=7\nhost=h\nverboselogfile=v\ntimeout=5\nproccntscript=/x\n"
                               "comment=c\nunc=0\n"),
              1);
    EXPECT_EQ(Load("PORT = 9\n"), 0);
    EXPECT_EQ(settings_.port, 1055);  // the first port ever read stays
    EXPECT_EQ(error_.Pos("TCP post"), 0);
    EXPECT_EQ(settings_.host, "h");
    EXPECT_EQ(settings_.verboseLogFile, "v");
    EXPECT_EQ(settings_.timeout, 5);
    EXPECT_EQ(settings_.procCntScript, "/x");
    EXPECT_EQ(settings_.comment, "");
    EXPECT_EQ(settings_.testUnc, 1);
}

TEST_F(ConfigFile, FilterListAndMarks) {
    struct {
        const char* list;
        const char* marks;
        const char* stored;
        const char* active;
        bool warned;
    } cases[] = {
        {"  10.0.0.1    10.0.0.2 ", "01", "10.0.0.1\r\n10.0.0.2", "\r\n10.0.0.2\r\n", false},
        {"a b c", "101", "a\r\nb\r\nc", "\r\na\r\nc\r\n", false},
        {"a b c", "1", "a\r\nb\r\nc", "\r\na\r\n", false},
        {"a b c", "1111", "a\r\nb\r\nc", "\r\na\r\nb\r\nc\r\n", true},
        {"a%0D%0Ab%0dc", "11", "a\r\nb%0dc", "\r\na\r\nb%0dc\r\n", false},
        {"a%0A%0Ab", "111", "a\n\nb", "\r\na\r\n", true},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Load(Minimal() + "filterlist=" + c.list + "\nfiltermarks=" + c.marks + "\n"), 1);
        EXPECT_EQ(settings_.filterList, c.stored);
        EXPECT_EQ(settings_.activeFilter, c.active);
        EXPECT_EQ(error_, c.warned ? kMarksWarning : "") << c.list;
    }
}

TEST_F(ConfigFile, AgentPathIsCheckedAndLocatesScripts) {
    ASSERT_EQ(Load(Minimal() + "cpuusagescript=cpu.sh\nproclistscript=./list.sh\n"), 1);
    EXPECT_EQ(settings_.cpuUsageScript, dir_ / "/cpu.sh");  // two slashes in a row
    EXPECT_EQ(settings_.procListScript, "./list.sh");
    EXPECT_EQ(settings_.procCntScript, dir_ / "/");  // nothing named: the bare directory
    std::string rest = "filterlist=a\nfiltermarks=1\nport=1\npassword=p\nzotpath=";
    for (const std::string& path : {dir_.Path(), dir_ / "absent"}) {
        EXPECT_EQ(Load(rest + path), 0);
        EXPECT_EQ(error_, "  Invalid path to the agent!\n");
    }
    for (const char* path : {"", "bin/zot"}) {
        EXPECT_EQ(Load(rest + path), 0);
        EXPECT_EQ(error_, "  Full path to the agent is not specified!\n");
    }
}

TEST_F(ConfigFile, TemporaryDirectoryIsResolvedAndExported) {
    std::string other = dir_ / "other";
    std::filesystem::create_directory(other);
    struct {
        std::string key;
        const char* tmpdir;
        const char* tmp;
        std::string expected;
    } cases[] = {
        {other + "/", "/", nullptr, other},
        {other + "//", nullptr, nullptr, other + "/"},
        {"", other.c_str(), "/", other},
        {"/nowhere", "/nowhere", other.c_str(), "."},
        {agent_, nullptr, other.c_str(), other},
        {"", nullptr, "/nowhere", "."},
        {"", nullptr, nullptr, "."},
    };
    for (const auto& c : cases) {
        c.tmpdir != nullptr ? setenv("TMPDIR", c.tmpdir, 1) : unsetenv("TMPDIR");
        c.tmp != nullptr ? setenv("TMP", c.tmp, 1) : unsetenv("TMP");
        Load("tmpdir=" + c.key);
        EXPECT_EQ(settings_.tmpDir, c.expected);
        EXPECT_EQ(std::string(getenv("TMPDIR")), c.expected);
        std::string entry = "TMPDIR=" + c.expected;
        putenv(entry.data());
        Load("tmpdir=" + c.key);
        EXPECT_EQ(getenv("TMPDIR"), entry.data() + 7) << "an unchanged value is not set again";
        unsetenv("TMPDIR");
    }
    unsetenv("TMP");
}

}  // namespace
}  // namespace zot
