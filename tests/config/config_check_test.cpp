#include "config/config_check.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

#include "tests/support/temp_dir.h"

namespace zot {
namespace {

class ConfigCheck : public ::testing::Test {
  protected:
    ConfigCheck() {
        const char* exported = getenv("TMPDIR");
        if (exported != nullptr) tmpDir_ = exported;
        agent_ = dir_.Write("zot", "#!/bin/sh\n");
        chmod(agent_.c_str(), 0700);
    }
    ~ConfigCheck() override {
        if (tmpDir_.empty()) {
            unsetenv("TMPDIR");
        } else {
            setenv("TMPDIR", tmpDir_.c_str(), 1);
        }
    }

    // "LINE TEXT" for each mistake.
    std::string Check(const std::string& content, mode_t mode = 0600) {
        path_ = dir_.Write("zot.cfg", content);
        chmod(path_.c_str(), mode);
        std::string told;
        for (const ConfigMistake& mistake : CheckConfig(path_.c_str())) {
            told += std::to_string(mistake.line) + " " + mistake.text + "\n";
        }
        return told;
    }
    std::string Good() const { return "port=1055\npassword=p\nzotpath=" + agent_ + "\n"; }

    test::TempDir dir_;
    std::string agent_;
    std::string path_;
    std::string tmpDir_;
};

TEST_F(ConfigCheck, AGoodFileHasNoMistakes) {
    EXPECT_EQ(Check(Good()), "");
    EXPECT_EQ(
        Check("# \xC3\xA4\r\n;x\r\n\r\nPort = 1055 \r\npassword=p\r\nZOTPATH=" + agent_ +
              "\r\nfilteractive=1\nfilterlist=192.0.2.1 192.0.2.2\nfiltermarks=10\n"
              "manageaddr=192.0.2.1, 192.0.2.3 - 192.0.2.9\nupdateaddr=\n"
              "auditlog=syslog\ntimeout=-1\noklogfile=ok.txt\ncomment=\nhost=localhost\nunc=0"),
        "");
}

TEST_F(ConfigCheck, EachMistakeIsToldWithItsLine) {
    struct Case {
        std::string line;  // the fourth of the file
        std::string told;
    };
    const std::string blank = dir_.Write("a script", "#!/bin/sh\n");
    chmod(blank.c_str(), 0700);
    const std::string kNoAddress =
        " is no address and no range such as 192.0.2.1-192.0.2.9; names and networks do not count "
        "here\n";
    for (const Case& c : {
             Case{"filteractiv=1", "unknown key \"filteractiv\", did you mean filteractive?\n"},
             Case{"shelscript=0", "unknown key \"shelscript\", did you mean shellscript?\n"},
             Case{"colour=blue", "unknown key \"colour\"\n"},
             Case{"[checks]", "sets nothing: there is no \"=\"\n"},
             Case{" #unc=0",
                  "a comment begins with its very first character, this one with a "
                  "blank\n"},
             Case{"unc=yes", "unc is 1 or 0; \"yes\" counts as 0\n"},
             Case{"unc=1 # on", "unc is 1 or 0; \"1 # on\" counts as 1\n"},
             Case{"port=1056", "port stands on line 1 already; the first one counts\n"},
             Case{"password=q", "password stands on line 2 already; the last one counts\n"},
             Case{"\xC2\xA0shellscript=0",
                  "unknown key \"\\xc2\\xa0shellscript\", did you mean shellscript?\n"},
             Case{"replaywindow=4s", "replaywindow is a number from 0 to 2147483647, not \"4s\"\n"},
             Case{"minrequestkey=65536",
                  "minrequestkey is a number from 0 to 65535, not \"65536\"\n"},
             Case{"manageaddr=192.0.2.0/24,192.0.2.1", "manageaddr: \"192.0.2.0/24\"" + kNoAddress},
             Case{"updateaddr=192.0.2.1-9", "updateaddr: \"192.0.2.1-9\"" + kNoAddress},
             Case{"manageaddr=0.0.0.0-255.255.255.255",
                  "manageaddr: 0.0.0.0 ends the list and admits nobody\n"},
             Case{"unc=0\rpassword=q", "holds a carriage return: lines end with LF or CR LF\n"},
             Case{"manageaddr=1.0.0.0-255.255.255.255",
                  "manageaddr: \"1.0.0.0-255.255.255.255\"" + kNoAddress},
             Case{"tmpdir=/gone", "tmpdir: there is no folder /gone\n"},
             Case{"badlogfile=/etc", "badlogfile is a file, not a folder\n"},
             Case{"auditlog=Syslog", "auditlog: the system's log is \"syslog\"\n"},
             Case{"auditlog=/gone/audit", "auditlog: there is no folder /gone/\n"},
             Case{"proccntscript=/gone.sh", "proccntscript: there is no file /gone.sh\n"},
             Case{"proclistscript=/etc/passwd", "proclistscript: not executable: /etc/passwd\n"},
             Case{"cpuusagescript=" + blank,
                  "cpuusagescript: a blank ends the path: " + blank + "\n"},
             Case{"host=192.0.2.300", "host: \"192.0.2.300\" is no IPv4 address and no name\n"},
             Case{"host=a b", "host: \"a b\" is no IPv4 address and no name\n"},
             Case{"filteractive=1", "filteractive=1, and no active entry: nobody may connect\n"},
             Case{"filterlist=192.0.2.1", "filterlist and filtermarks need each other: set both\n"},
             Case{"comment=" + std::string(1020, 'x'),
                  "is longer than 1023 bytes: the rest counts as a line of its own\n"},
         }) {
        EXPECT_EQ(Check(Good() + c.line + "\n"), "4 " + c.told) << c.line;
    }
    EXPECT_EQ(Check(Good() + "filterlist=10.0.0.0/8 192.0.2.1\nfiltermarks=111\n"),
              "4 filterlist: \"10.0.0.0/8\" is no address; ranges, names and networks do not count "
              "here\n5 entries of filterlist: 2, marks in filtermarks: 3\n");
}

TEST_F(ConfigCheck, WhatConcernsTheWholeFile) {
    EXPECT_EQ(Check(""),
              "0 port is missing\n0 password is missing or empty\n0 zotpath is missing or empty\n");
    EXPECT_EQ(Check("port=0\npassword=\nzotpath=zot\n"),
              "1 port is a number from 1 to 65535, not \"0\"\n2 password is missing or empty\n"
              "3 zotpath is a full path, from / on\n");
    EXPECT_EQ(Check(Good(), 0606),
              "0 everybody can read its password: chmod o=\n"
              "0 everybody can change it: chmod o=\n");
    EXPECT_EQ(Check("\xEF\xBB\xBF" + Good()),
              "1 begins with a byte-order mark, so this line sets nothing\n");
    EXPECT_EQ(Check(std::string("\xFF\xFEp\0o\0", 6)),
              "0 holds NUL bytes, as UTF-16 does: write it as plain text (UTF-8)\n");
    std::vector<ConfigMistake> gone = CheckConfig("/gone");
    ASSERT_EQ(gone.size(), 1U);
    EXPECT_EQ(gone[0].text, "cannot be read: No such file or directory");
}

}  // namespace
}  // namespace zot
