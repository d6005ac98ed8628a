#include "agent/upgrade.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "base/twofish.h"
#include "client/request_packet.h"
#include "tests/support/temp_dir.h"

namespace zot {
namespace {

constexpr char kKey[] = "upgrade key";

class UpgradeTest : public testing::Test {
  protected:
    UpgradeTest() {
        TwofishInitialise();
        settings_.tmpDir = dir_.Path();
        settings_.agentPath = "/opt/zot";
    }

    std::string Begin(UpgradeTransfer& transfer, const std::string& size) {
        Reply reply;
        transfer.Begin(size + "\n\r", settings_, reply);
        return std::string(reply.Text().View());
    }
    // The error text of one receive.
    std::string Receive(UpgradeTransfer& transfer, std::string_view data) {
        VyString errorText = "left from before";
        transfer.Receive(data, PacketCipher(kKey), settings_, errorText);
        return std::string(errorText.View());
    }
    static std::string Trailer(std::string_view data) {
        auto digest = Md5Digest(data.data(), data.size());
        return client::Encrypt(kKey, {reinterpret_cast<char*>(digest.data()), digest.size()});
    }
    bool Exists(const char* name) { return access((dir_ / name).c_str(), F_OK) == 0; }

    test::TempDir dir_;
    AgentSettings settings_;
    UpgradeGate gate_;
    const std::string module_ = std::string(300, 'm') + "end";
};

TEST_F(UpgradeTest, AGoodTransferLeavesModuleAndScript) {
    // What an attacker might have planted where root is about to write.
    dir_.Write("target", "keep me");
    ASSERT_EQ(symlink((dir_ / "target").c_str(), (dir_ / "zot__.upd").c_str()), 0);
    ASSERT_EQ(symlink((dir_ / "target").c_str(), (dir_ / "zotupd__.sh").c_str()), 0);

    UpgradeTransfer transfer(gate_);
    EXPECT_EQ(Begin(transfer, "303"), "200\n");
    EXPECT_EQ(Receive(transfer, module_.substr(0, 100)), "");
    EXPECT_EQ(Receive(transfer, module_.substr(100) + Trailer(module_)), "");
    EXPECT_FALSE(transfer.InProgress());
    EXPECT_EQ(test::ReadFile(dir_ / "target"), "keep me");
    EXPECT_EQ(test::ReadFile(dir_ / "zot__.upd"), module_);
    EXPECT_EQ(transfer.ScriptPath(), dir_ / "zotupd__.sh");
    EXPECT_EQ(test::ReadFile(dir_ / "zotupd__.sh"),
              "#! /bin/sh\n"
              "oldZOT='/opt/zot'\n"
              "newZOT='" +
                  dir_.Path() +
                  "/zot__.upd'\n"
                  "retries=10\n"
                  "rm $oldZOT\n"
                  "while [ -f $oldZOT ] &&  [ $retries -gt 0 ]\n"
                  "do\n"
                  "  retries=`expr $retries - 1`\n"
                  "  echo $retries\n"
                  "  sleep 1\n"
                  "done\n"
                  "cp -f $newZOT $oldZOT\n"
                  "rm -f $newZOT\n"
                  "$oldZOT $1 $2 $3 $4 $5 $6\n"
                  "rm " +
                  dir_.Path() + "/zotupd__.sh\n");
    for (const char* name : {"zot__.upd", "zotupd__.sh"}) {
        struct stat status {};
        ASSERT_EQ(lstat((dir_ / name).c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777, 0775u) << name;
    }
    EXPECT_TRUE(gate_.Enter());
}

TEST_F(UpgradeTest, AWrongSizeIsRefusedButStillHoldsTheGate) {
    for (const char* size : {"100", "10485760", "-5", "x", ""}) {
        UpgradeGate gate;
        UpgradeTransfer transfer(gate);
        EXPECT_EQ(Begin(transfer, size), "501\nWrong file parameter(s)\n") << size;
        EXPECT_TRUE(transfer.InProgress());
        EXPECT_FALSE(gate.Enter());
    }
    UpgradeGate gate;
    UpgradeTransfer largest(gate);
    EXPECT_EQ(Begin(largest, "10485759"), "200\n");
}

TEST_F(UpgradeTest, AFolderThatIsNotThereFailsTheTransfer) {
    settings_.tmpDir = dir_ / "missing";
    UpgradeTransfer transfer(gate_);
    EXPECT_EQ(Begin(transfer, "303"), "300\nCannot create temp file\n");
    EXPECT_FALSE(transfer.InProgress());
    EXPECT_TRUE(gate_.Enter());
}

}  // namespace
}  // namespace zot
