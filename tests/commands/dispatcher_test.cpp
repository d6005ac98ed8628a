#include "commands/dispatcher.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "commands/command_table.h"
#include "tests/support/temp_dir.h"

namespace zot {
namespace {

struct RecordedControl : ProcessControl {
    void BeforeLongWork() override { asked += "long "; }
    void RequestTerminate() override { asked += "terminate "; }
    void RequestReload() override { asked += "reload "; }
    void BeginUpgrade(std::string_view params, Reply& reply) override {
        asked += "upgrade:" + std::string(params);
        reply.Start("200");
    }
    std::string asked;
};

class DispatcherTest : public testing::Test {
  protected:
    DispatcherTest() {
        // After a reload in vain the failure log has its default name, in this folder.
        std::filesystem::current_path(home_.Path());
        store_.Change([](AgentSettings& settings) {
            settings.password = "p";
            settings.allowManage = settings.allowUpdates = true;
            settings.manageAddr = "10.0.0.1-10.0.0.9";
            settings.updateAddr = "10.0.0.2";
            return true;
        });
    }

    ~DispatcherTest() override { std::filesystem::current_path(before_); }

    // The reply text, followed by "!" when the command was not recognised.
    std::string Ask(std::string_view request, const char* peer = "10.0.0.2") {
        SettingsSnapshot settings = store_.Snapshot();
        Reply reply;
        RequestContext context = {{}, *settings, store_, counters_, control_, inet_addr(peer)};
        bool recognised = Dispatch(request, context, log_, reply);
        return std::string(reply.Text().View()) + (recognised ? "" : "!");
    }

    void Switch(bool AgentSettings::*one, bool on) {
        store_.Change([=](AgentSettings& settings) { return settings.*one = on; });
    }
    void SwitchAll(bool on) {
        for (const CheckRecord& check : Checks()) Switch(check.enabled, on);
    }

    SettingsStore store_;
    Log log_{store_};
    test::TempDir home_;
    const std::filesystem::path before_ = std::filesystem::current_path();
    ConnectionCounters counters_;
    RecordedControl control_;
};

TEST_F(DispatcherTest, FormOfTheRequestIsCheckedInOrder) {
    EXPECT_EQ(Ask("GetInfo\n"), "502\nEndOfTransmission signal missed\n!");
    EXPECT_EQ(Ask(""), "502\nEndOfTransmission signal missed\n!");
    EXPECT_EQ(Ask("\r"), "500\nVoid request received\n!");
    EXPECT_EQ(Ask(" \nTEST-UNC\r"), "500\nVoid request received\n!");
    EXPECT_EQ(Ask("getinfo\n\r"), "500\nUnknown command \"getinfo\"\n!");
    EXPECT_EQ(Ask(" TEST-DiskSpace\t\n\r"), "500\nNot applicable for UNIX/Linux\n");
    EXPECT_EQ(Ask("TEST-SNMP\r"), "500\nnot implemented yet\n");
    EXPECT_EQ(Ask("GetInfo\n\r", "192.0.2.1").substr(0, 14), "200\nAgentName=");
}

TEST_F(DispatcherTest, ManagementNeedsSwitchAndAddress) {
    const std::string refused = "600\nOperation is not allowed\n";
    for (const char* command : {"QUIT", "ReloadApp", "ReloadCfg", "GetSettings", "SetSettings"}) {
        EXPECT_EQ(Ask(std::string(command) + "\n\r", "10.0.0.10"), refused) << command;
    }
    EXPECT_EQ(Ask("UpgradeCode\n500\n\r", "10.0.0.3"), refused);
    EXPECT_EQ(Ask("QUIT\n\r"), "200\nOk\n");
    EXPECT_EQ(Ask("ReloadApp\n\r"), "200\nOk\n");
    EXPECT_EQ(Ask("UpgradeCode\n500\n\r"), "200\n");
    EXPECT_EQ(control_.asked, "terminate reload long upgrade:500\n\r");
    EXPECT_EQ(Ask("ReloadCfg\n\r"), "300\nConfiguration file is not specified\n");
    store_.Change([](AgentSettings& settings) {
        settings.allowManage = settings.allowUpdates = false;
        settings.manageAddr = settings.updateAddr = "10.0.0.2";
        return true;
    });
    EXPECT_EQ(Ask("QUIT\n\r"), refused);
    EXPECT_EQ(Ask("UpgradeCode\n500\n\r"), refused);
}

// Each with the switches that allow it: one is enough.
TEST_F(DispatcherTest, TestsAndActionsNeedTheirSwitch) {
    using A = AgentSettings;
    const struct {
        const char* command;
        std::vector<bool A::*> switches;
        const char* refusal = "600\ntest is not allowed\n";
    } cases[] = {
        {"TEST-UNC", {&A::testUnc}},
        {"TEST-FolderSize", {&A::testFolderSize}},
        {"TEST-FileExists", {&A::testFileExists}},
        {"TEST-FileCompare", {&A::testCompareFiles}},
        {"TEST-FileHash", {&A::testFileCrc}},
        {"TEST-CountFiles", {&A::testCountFiles}},
        {"TEST-Process", {&A::testProcess}},
        {"TEST-CPU", {&A::testCpuUsage}},
        {"TEST-ExternalPrg", {&A::testExternal}},
        {"TEST-TCP", {&A::testTcp}},
        {"TEST-UDP", {&A::testUdp}},
        {"TEST-TextLog", {&A::testTextLog}},
        {"TEST-TextLog2", {&A::testTextLog}},
        {"TEST-ShellScript", {&A::testShellScript}},
        {"GetProcessesList", {&A::testProcess}},
        {"GetFilesList",
         {&A::testFolderSize, &A::testCountFiles, &A::testFileExists, &A::testFileCrc,
          &A::testCompareFiles, &A::testTextLog}},
        {"ACT-ExternalCmd", {&A::actExecute}, "600\noperation is not allowed\n"},
        {"ACT-TCPUDPsend", {&A::actTcpUdp}, "600\noperation is not allowed\n"},
        {"ACT-Syslog", {&A::actSyslog}, "600\noperation is not allowed\n"},
    };
    for (const auto& c : cases) {
        const std::string request = std::string(c.command) + "\n\r";
        SwitchAll(true);
        for (auto one : c.switches) Switch(one, false);
        EXPECT_EQ(Ask(request), c.refusal) << c.command;
        for (auto one : c.switches) {
            SwitchAll(false);
            Switch(one, true);
            EXPECT_NE(Ask(request).substr(0, 3), "600") << c.command;
        }
    }
}

TEST_F(DispatcherTest, WithoutAPasswordOnlyTheRescueIsServed) {
    SwitchAll(true);
    store_.Change([](AgentSettings& settings) {
        settings.password = "";
        settings.manageAddr = "127.0.0.1";  // as the reload below leaves it
        return true;
    });
    for (const Command& command : CommandTable()) {
        const std::string name(command.name);
        bool served = name == "GetInfo" || name == "GetSettings" || name == "ReloadCfg";
        std::string reply = Ask(name + "\n\r", "127.0.0.1");
        EXPECT_EQ(reply == "600\nOperation is not allowed\n", !served) << name << reply;
    }
    EXPECT_EQ(control_.asked, "");
    EXPECT_EQ(Ask("ReloadCfg\n\r", "192.0.2.1"), "600\nOperation is not allowed\n");
    EXPECT_EQ(Ask("QUIT\n"), "502\nEndOfTransmission signal missed\n!");
    EXPECT_EQ(Ask("\r"), "500\nVoid request received\n!");
    EXPECT_EQ(Ask("quit\n\r"), "500\nUnknown command \"quit\"\n!");
}

}  // namespace
}  // namespace zot
