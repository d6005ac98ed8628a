#include "commands/dispatcher.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <string>

#include "commands/command_table.h"

namespace zot {
namespace {

struct RecordedControl : ProcessControl {
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
        store_.Change([](AgentSettings& settings) {
            settings.allowManage = settings.allowUpdates = 1;
            settings.manageAddr = "10.0.0.1-10.0.0.9";
            settings.updateAddr = "10.0.0.2";
            return 1;
        });
    }

    // The reply text, with "!" behind it when the command was not recognised.
    std::string Ask(std::string_view request, const char* peer = "10.0.0.2") {
        SettingsSnapshot settings = store_.Snapshot();
        Reply reply;
        RequestContext context = {{}, *settings, store_, counters_, control_, inet_addr(peer)};
        bool recognised = Dispatch(request, context, log_, reply);
        return std::string(reply.Text().View()) + (recognised ? "" : "!");
    }

    SettingsStore store_;
    Log log_{store_};
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
    EXPECT_EQ(control_.asked, "terminate reload upgrade:500\n\r");
    EXPECT_EQ(Ask("ReloadCfg\n\r"), "300\nConfiguration file is not specified\n");
    store_.Change([](AgentSettings& settings) {
        settings.allowManage = settings.allowUpdates = 0;
        settings.manageAddr = settings.updateAddr = "10.0.0.2";
        return 1;
    });
    EXPECT_EQ(Ask("QUIT\n\r"), refused);
    EXPECT_EQ(Ask("UpgradeCode\n500\n\r"), refused);
}

TEST(CommandTable, EveryRowHasOneHandler) {
    for (const Command& command : CommandTable()) {
        EXPECT_NE(command.check == nullptr, command.process == nullptr) << command.name;
        EXPECT_TRUE(command.permission == Permission::kAnyone || command.process != nullptr);
    }
    EXPECT_EQ(CommandTable().size(), 37u);
}

}  // namespace
}  // namespace zot
