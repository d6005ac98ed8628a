#include "config/config_save.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <functional>
#include <string>

#include "config/config_file.h"
#include "tests/support/temp_dir.h"

namespace zot {
namespace {

// Runs `body` in a child process and returns the exit status that `body` returned.
int InChild(const std::function<int()>& body) {
    pid_t child = fork();
    if (child == 0) _exit(body());
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

class ConfigSave : public ::testing::Test {
  protected:
    // Loads a configuration with this content, so that the next save starts from it.
    void Load(const std::string& content) {
        std::string path = dir_.Write("zot.cfg", content);
        strcpy(settings_.configPath, path.c_str());
        LoadConfig(settings_, error_);
    }
    std::string Saved() const { return test::ReadFile(settings_.configPath); }
    std::string Other(const char* suffix) const {
        return settings_.configPath + std::string(suffix);
    }

    test::TempDir dir_;
    AgentSettings settings_;
    VyString error_;
};

constexpr const char* kAppended =
    "timeout=4000\r\ncomment=\r\npassword=\r\nfilteractive=0\r\nfiltermarks=127.0.0.1\r\n"
    "filterlist=1\r\nverboselogfile=\r\nlogsuccess=0\r\nlogfails=1\r\noklogfile=log1.txt\r\n"
    "badlogfile=log2.txt\r\nallowupdates=1\r\nallowmanage=1\r\nupdateaddr=127.0.0.1\r\n"
    "manageaddr=127.0.0.1\r\nunc=1\r\nfoldersize=1\r\ncountfiles=1\r\nfileexists=1\r\nfilecrc=1\r\n"
    "comparefiles=1\r\nprocess=1\r\ncpuusage=1\r\nscript=1\r\nexternal=1\r\nping=1\r\ntcp=1\r\n"
    "udp=1\r\ntextlog=1\r\nshellscript=1\r\nexecuteaction=0\r\ntcpudpaction=0\r\nsyslogaction="
    "0\r\n";

TEST_F(ConfigSave, MissingKeysAreAppendedInOrderButNotFreespace) {
    Load("");
    settings_.port = -5;
    EXPECT_EQ(SaveConfig(settings_, error_), 1);
    EXPECT_EQ(error_, "FilterMarks has less items than FilterList");  // no failure
    EXPECT_EQ(Saved(), std::string("host=\r\nport=-5\r\n") + kAppended);
    EXPECT_EQ(test::ReadFile(Other(".Old")), "");
    std::string once = Saved();
    EXPECT_EQ(SaveConfig(settings_, error_), 1);
    EXPECT_EQ(Saved(), once);
    EXPECT_EQ(test::ReadFile(Other(".Old")), once);
    EXPECT_NE(access(Other(".New").c_str(), F_OK), 0);
}

TEST_F(ConfigSave, LinesAreRewrittenWhereTheyStand) {
    Load(
        "# c=1\r\n\n;x\n Unknown = 1 \nnoequals\nzotpath=/a\nTMPDIR=b\nunc=yes\r\nfreespace = 0 # "
        "r\n"
        "udp=\r\ntcp=\nFilterList=\t 10.0.0.1   10.0.0.2 \r\n  HOST \t=  old  \npassword=p\n"
        "host=again\n  #comment=1\nlogfails=1");
    settings_.testUnc = settings_.testFreeSpace = settings_.testTcp = 1;
    settings_.host = "new";
    settings_.password = "";
    EXPECT_EQ(SaveConfig(settings_, error_), 1);
    std::string expected =
        "# c=1\r\n\n;x\n Unknown = 1 \nnoequals\nzotpath=/a\nTMPDIR=b\nunc=1es\r\nfreespace = 1 # "
        "r\n"
        "udp=0\r\ntcp=1\r\nFilterList=\t 10.0.0.1 10.0.0.2\r\n  HOST \t=  new\r\npassword=\r\n"
        "host=new\r\n  #comment=1\nlogfails=1\r\nport=0\r\ntimeout=4000\r\ncomment=\r\n";
    EXPECT_EQ(Saved().substr(0, expected.size()), expected);
    LoadConfig(settings_, error_);
    EXPECT_EQ(settings_.testUnc, 1);
    EXPECT_EQ(settings_.filterList, "10.0.0.1\r\n10.0.0.2");
}

TEST_F(ConfigSave, NoValueBringsALineOfItsOwn) {
    // Rewritten and appended: line breaks, a NUL, and text that a reader would take for a new line.
    Load("comment=x\n");
    settings_.comment = "a\r\nport=1\nb\v\rc";
    settings_.host = std::string_view("h\0\nport=2", 9);
    settings_.filterList = "a\r\nb\nport=3\rc";
    settings_.okLogFile = std::string(1023 - 10, 'x') + "port=4";
    settings_.badLogFile = std::string(2000, 'y');
    EXPECT_EQ(SaveConfig(settings_, error_), 1);
    EXPECT_TRUE(Saved().starts_with("comment=a\r port=1 b\v\rc\r\nhost=h\r\nport=")) << Saved();
    EXPECT_NE(Saved().find("\r\nfilterlist=a b port=3\rc\r\n"), std::string::npos) << Saved();
    settings_.port = 0;
    LoadConfig(settings_, error_);
    EXPECT_EQ(settings_.port, 0);
    EXPECT_EQ(settings_.comment, "a\r port=1 b\v\rc");
    EXPECT_EQ(settings_.badLogFile, std::string(1023 - 11, 'y'));
    settings_.okLogFile = std::string(3000, 'z');
    EXPECT_EQ(SaveConfig(settings_, error_), 1);  // now in place
    size_t at = Saved().find("oklogfile=");
    EXPECT_EQ(Saved().find("\r\n", at) - at, 1023u);
}

// The beginning of an address would admit other hosts.
TEST_F(ConfigSave, ListsOfAddressesAreCutBetweenTheirItems) {
    Load("");
    std::string filter, items;
    for (int i = 1; i < 200; ++i) {
        filter += "10.167." + std::to_string(i) + ".15\r\n";
        items += "10.167.1." + std::to_string(i) + "-10.167.2.5,";
    }
    settings_.filterList = filter;
    settings_.filterMarks = std::string(1024, '1');
    settings_.manageAddr = items;
    settings_.updateAddr = std::string(2000, '1');
    EXPECT_EQ(SaveConfig(settings_, error_), 1);
    LoadConfig(settings_, error_);
    EXPECT_GT(settings_.filterList.Length(), 1000);
    for (const auto& [list, whole, end] :
         {std::tuple(settings_.filterList.View(), filter, ".15"),
          std::tuple(settings_.manageAddr.View(), items, "-10.167.2.5")}) {
        EXPECT_TRUE(whole.starts_with(list) && list.ends_with(end)) << list;
    }
    EXPECT_EQ(settings_.updateAddr, "");
}

TEST_F(ConfigSave, KeepsOwnerAndPermissionsAndFollowsNoLeftover) {
    Load("");
    std::string victim = dir_.Write("victim", "untouched");
    ASSERT_EQ(symlink(victim.c_str(), Other(".New").c_str()), 0);
    if (geteuid() == 0) {
        ASSERT_EQ(chown(settings_.configPath, 1234, 4321), 0);
    }
    ASSERT_EQ(chmod(settings_.configPath, 0460), 0);
    struct stat before {
    }, after{};
    ASSERT_EQ(stat(settings_.configPath, &before), 0);
    EXPECT_EQ(SaveConfig(settings_, error_), 1);
    ASSERT_EQ(stat(settings_.configPath, &after), 0);
    EXPECT_EQ(after.st_mode, before.st_mode);
    EXPECT_EQ(after.st_uid, before.st_uid);
    EXPECT_EQ(after.st_gid, before.st_gid);
    EXPECT_NE(after.st_ino, before.st_ino);
    ASSERT_EQ(stat(Other(".Old").c_str(), &after), 0);
    EXPECT_EQ(after.st_ino, before.st_ino);
    EXPECT_EQ(test::ReadFile(victim), "untouched");
}

TEST_F(ConfigSave, FailuresLeaveTheOldFileWhole) {
    VyString error;
    EXPECT_EQ(SaveConfig(settings_, error), 0);
    EXPECT_EQ(error, "Configuration file is not specified");
    for (const std::string& path : {dir_ / "absent", dir_.Path()}) {
        strcpy(settings_.configPath, path.c_str());
        EXPECT_EQ(SaveConfig(settings_, error), 0);
        EXPECT_EQ(error, "Cannot open configuration file '" + path + "'");
        EXPECT_NE(access((path + ".New").c_str(), F_OK), 0);
    }
    Load("comment=old\n");
    std::string cannotCreate =
        "Cannot create new configuration file '" + (dir_ / "zot.cfg") + ".New'";
    int readOnlyDirectory = InChild([&] {
        if (chmod(dir_.Path().c_str(), 0555) != 0) return 2;
        if (geteuid() == 0 && setuid(65534) != 0) return 3;
        return SaveConfig(settings_, error) == 0 && error == cannotCreate ? 0 : 1;
    });
    chmod(dir_.Path().c_str(), 0755);
    EXPECT_EQ(readOnlyDirectory, 0);
    int fullDisk = InChild([&] {
        signal(SIGXFSZ, SIG_IGN);
        rlimit limit{200, 200};
        setrlimit(RLIMIT_FSIZE, &limit);
        return SaveConfig(settings_, error) == 0 && error == cannotCreate ? 0 : 1;
    });
    EXPECT_EQ(fullDisk, 0);
    EXPECT_EQ(Saved(), "comment=old\n");
    EXPECT_NE(access(Other(".New").c_str(), F_OK), 0);
}

TEST_F(ConfigSave, OldNameThatIsADirectoryDoesNotStopTheSave) {
    Load("comment=old\n");
    std::filesystem::create_directory(Other(".Old"));
    EXPECT_EQ(SaveConfig(settings_, error_), 1);
    EXPECT_TRUE(Saved().starts_with("comment=old\r\n"));
}

TEST_F(ConfigSave, KilledAtAnyMomentItLeavesAWholeFileInPlace) {
    Load("");
    settings_.password = std::string(900, 'p');
    ASSERT_EQ(SaveConfig(settings_, error_), 1);
    const std::string whole = Saved();
    int interrupted = 0;
    for (int round = 0; round < 100; ++round) {
        std::filesystem::remove(Other(".New"));
        pid_t child = fork();
        if (child == 0) {
            for (;;) SaveConfig(settings_, error_);
        }
        // While the saves go on there is always a file, and always a whole one. Every other kill
        // waits for a save to be in progress.
        for (int look = 0; look < round; ++look) EXPECT_EQ(Saved(), whole);
        auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(200);
        while (round % 2 == 0 && access(Other(".New").c_str(), F_OK) != 0 &&
               std::chrono::steady_clock::now() < end) {
        }
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        EXPECT_EQ(Saved(), whole);
        if (access(Other(".New").c_str(), F_OK) == 0) ++interrupted;
    }
    EXPECT_GT(interrupted, 0) << "no kill hit a save";
    EXPECT_EQ(SaveConfig(settings_, error_), 1);  // whatever was left from before
    EXPECT_EQ(Saved(), whole);
}

TEST_F(ConfigSave, APasswordThatTheFileCannotHoldChangesNothing) {
    const std::string content = "port=1\r\npassword=old\r\ncomment=old\r\n";
    Load(content);
    SettingsStore store;
    store.Change([this](AgentSettings& settings) {
        settings = settings_;
        settings.loadError.Clear();  // there is no agent in this configuration
        return true;
    });
    auto set = [&](const std::string& password) {
        return SaveConfigLocked(
            store,
            [&](AgentSettings& settings) {
                settings.password = password;
                settings.comment = "new";
            },
            error_);
    };
    const std::string longest(1023 - strlen("password="), 'p');
    for (const std::string& bad : {longest + "p", std::string("a\0b", 3)}) {
        EXPECT_FALSE(set(bad));
        EXPECT_EQ(error_, "Password does not fit into the configuration file");
        EXPECT_EQ(store.Snapshot()->password, "old");
        EXPECT_EQ(store.Snapshot()->comment, "old");
        EXPECT_EQ(Saved(), content);
        EXPECT_EQ(access(Other(".New").c_str(), F_OK), -1);
    }
    EXPECT_TRUE(set(longest));
    LoadConfig(settings_, error_);
    EXPECT_EQ(settings_.password, longest);
    EXPECT_EQ(settings_.comment, "new");
}

}  // namespace
}  // namespace zot
