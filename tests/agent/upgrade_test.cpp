#include "agent/upgrade.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <thread>

#include "base/twofish.h"
#include "client/request_packet.h"
#include "tests/support/file_tree.h"
#include "tests/support/ordinary_user.h"
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
    UpgradeOrder order = transfer.TakeOrder();
    EXPECT_EQ(order.scriptPath, dir_ / "zotupd__.sh");
    EXPECT_EQ(order.modulePath, dir_ / "zot__.upd");
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
    // Until the script has run, another transfer would change what it copies.
    EXPECT_FALSE(gate_.Enter());
}

TEST_F(UpgradeTest, AWrongSizeIsRefusedButStillHoldsTheGate) {
    for (const char* size : {"100", "10485760", "-5", "x", ""}) {
        UpgradeGate gate;
        UpgradeTransfer transfer(gate);
        EXPECT_EQ(Begin(transfer, size), "501\nWrong file parameter(s)\n") << size;
        // What follows is swallowed, even the right trailer of an empty file.
        for (const std::string& bytes : {Trailer(""), module_}) {
            EXPECT_EQ(Receive(transfer, bytes), "");
            EXPECT_TRUE(transfer.InProgress());
            EXPECT_FALSE(Exists("zot__.upd") || Exists("zotupd__.sh"));
        }
        EXPECT_FALSE(gate.Enter());
    }
    UpgradeGate gate;
    UpgradeTransfer largest(gate);
    EXPECT_EQ(Begin(largest, "10485759"), "200\n");
}

TEST_F(UpgradeTest, AgentsWithOneFolderDoNotTakeEachOthersFiles) {
    UpgradeGate otherGate;
    UpgradeTransfer first(gate_);
    EXPECT_EQ(Begin(first, "303"), "200\n");
    Receive(first, module_.substr(0, 100));
    for (bool finished : {false, true}) {
        if (finished) Receive(first, module_.substr(100) + Trailer(module_));
        UpgradeTransfer second(otherGate);
        EXPECT_EQ(Begin(second, "101"), "300\nCannot create temp file\n");
    }
    EXPECT_EQ(test::ReadFile(dir_ / "zot__.upd"), module_);
    // The script has gone on, and the names are another agent's.
    const UpgradeOrder order = first.TakeOrder();
    for (const char* name : {"zot__.upd", "zotupd__.sh"}) {
        ASSERT_EQ(unlink((dir_ / name).c_str()), 0);
        dir_.Write(name, "other");
    }
    order.RemoveFiles();
    EXPECT_TRUE(Exists("zot__.upd") && Exists("zotupd__.sh"));
    // Nobody holds it.
    UpgradeTransfer second(otherGate);
    EXPECT_EQ(Begin(second, "101"), "200\n");
    EXPECT_EQ(test::ReadFile(dir_ / "zot__.upd"), "");
}

// Where everybody can write, as in /tmp, other users hold or fill the names.
TEST_F(UpgradeTest, WhatOthersPlantedDoesNotStopRoot) {
    if (geteuid() != 0) GTEST_SKIP() << "another user is needed";
    test::SetMode(dir_.Path(), 01777);
    const std::string module = dir_ / "zot__.upd", script = dir_ / "zotupd__.sh";
    UniqueFd held;
    test::AsOrdinaryUser([&] {
        std::filesystem::create_directories(script + "/full");
        close(open(module.c_str(), O_RDWR | O_CREAT, 0666));
        return std::string();
    });
    held.Reset(open(module.c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(flock(held.Get(), LOCK_EX), 0);
    UpgradeTransfer transfer(gate_);
    EXPECT_EQ(Begin(transfer, "303"), "200\n");
    EXPECT_EQ(Receive(transfer, module_ + Trailer(module_)), "");
    EXPECT_EQ(test::ReadFile(module), module_);
    EXPECT_TRUE(test::ReadFile(script).starts_with("#!"));
}

// The script of the upgrade before removes its own name when the agent serves again.
TEST_F(UpgradeTest, TheScriptBeforeIsLetEnd) {
    dir_.Write("zotupd__.sh", "the one before");
    UpgradeTransfer transfer(gate_);
    EXPECT_EQ(Begin(transfer, "303"), "200\n");
    std::thread before([this] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        unlink((dir_ / "zotupd__.sh").c_str());
    });
    EXPECT_EQ(Receive(transfer, module_ + Trailer(module_)), "");
    before.join();
    EXPECT_TRUE(Exists("zotupd__.sh"));
}

TEST_F(UpgradeTest, NamesThatAShellWouldTakeApartGetNoScript) {
    constexpr char kRefusal[] = "Binary code transferred. Cannot create script file";
    const std::string folder = dir_.Path();
    const struct {
        std::string agentPath, tmpDir;
        const char* error;
    } cases[] = {
        {"/opt/zot_1.36+b-2", folder, ""},     {"/opt/my zot", folder, kRefusal},
        {"/opt/zot;id", folder, kRefusal},     {"/opt/zot'", folder, kRefusal},
        {"/opt/$HOME", folder, kRefusal},      {"/opt/zot*", folder, kRefusal},
        {"/opt/z\xC3\xB6t", folder, kRefusal}, {"/opt/zot", folder + "/a b", kRefusal},
    };
    std::filesystem::create_directory(dir_ / "a b");
    for (const auto& c : cases) {
        UpgradeGate gate;
        settings_.agentPath = c.agentPath;
        settings_.tmpDir = c.tmpDir;
        UpgradeTransfer transfer(gate);
        EXPECT_EQ(Begin(transfer, "303"), "200\n");
        EXPECT_EQ(Receive(transfer, module_ + Trailer(module_)), c.error) << c.agentPath;
        EXPECT_EQ(transfer.HasOrder(), *c.error == '\0');
        EXPECT_EQ(Exists("zot__.upd") || Exists("a b/zot__.upd"), *c.error == '\0');
        EXPECT_FALSE(*c.error != '\0' && Exists("zotupd__.sh"));
        unlink((dir_ / "zotupd__.sh").c_str());
        unlink((dir_ / "zot__.upd").c_str());
    }
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
