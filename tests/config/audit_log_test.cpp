#include "config/audit_log.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "tests/support/agent_process.h"
#include "tests/support/temp_dir.h"

namespace zot {
namespace {

class AuditLogTest : public testing::Test {
  protected:
    AuditLogTest() { settings_.auditLog = dir_ / "audit"; }
    std::string Written() const { return test::ReadFile(dir_ / "audit"); }
    int64_t Lines() const {
        std::string text = Written();
        return std::count(text.begin(), text.end(), '\n');
    }
    int64_t Count(const std::string& text) const {
        return static_cast<int64_t>(test::Count(Written(), text));
    }

    test::TempDir dir_;
    AgentSettings settings_;
    SettingsStore store_;
    Log failures_{store_};
    AuditLog log_{failures_};
};

TEST_F(AuditLogTest, TenLinesAMinuteForEachAddressAndTheRestInOne) {
    const uint32_t one = inet_addr("192.0.2.1"), other = inet_addr("192.0.2.2");
    for (int i = 0; i < 50; ++i) log_.NoteStranger(settings_, one, 100);
    log_.NoteStranger(settings_, other, 100);
    EXPECT_EQ(Lines(), 11);
    log_.WriteCounts(settings_, 159);
    EXPECT_EQ(Lines(), 11);
    log_.NoteStranger(settings_, one, 160);  // this writes the counts of the past minute
    log_.WriteCounts(settings_, 220);
    EXPECT_EQ(Lines(), 13);
    EXPECT_EQ(Count("\t 192.0.2.1\t not authenticated, 40 more in a minute\n"), 1);
    EXPECT_EQ(Count("\t 192.0.2.1\t not authenticated\n"), 11);
}

TEST_F(AuditLogTest, AnyNumberOfAddressesFillsNoTable) {
    for (uint32_t i = 1; i <= 5000; ++i) log_.NoteStranger(settings_, htonl(0x0a000000 + i), 1);
    EXPECT_EQ(Lines(), 1024 + 10);
    log_.WriteCounts(settings_, 61);
    EXPECT_EQ(Count("\t others\t not authenticated, 3966 more in a minute\n"), 1);
    log_.NoteStranger(settings_, htonl(0x0a000000 + 5000), 62);
    EXPECT_EQ(Count("\t 10.0.19.136\t not authenticated\n"), 1) << "room again";
}

TEST_F(AuditLogTest, WhoFindsNoRoomIsNeverTakenForAnother) {
    auto note = [&](uint32_t from, uint32_t to, int64_t now) {
        for (uint32_t i = from; i <= to; ++i)
            log_.NoteStranger(settings_, htonl(0x0a000000 + i), now);
    };
    note(1, 1, 1);
    note(2, 1024, 50);
    log_.WriteCounts(settings_, 61);
    note(1025, 1030, 62);
    EXPECT_EQ(Lines(), 1030);
    EXPECT_EQ(Count("\t 10.0.0.2\t"), 1);
    EXPECT_EQ(Count("\t others\t not authenticated\n"), 5);
}

TEST_F(AuditLogTest, GoesToTheSystemsLogWithoutWaiting) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = dir_ / "log";
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    UniqueFd receiver(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ASSERT_EQ(bind(receiver.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    AuditLog log(failures_, path);
    settings_.auditLog = "syslog";
    // More than fit into the receiver's queue: the rest is lost.
    for (int i = 0; i < 2000; ++i) {
        log.NoteRequest(settings_, inet_addr("192.0.2.1"), "GetInfo\nsecret\n\r", "200", 3);
    }
    char line[256];
    ssize_t size = recv(receiver.Get(), line, sizeof line, MSG_DONTWAIT);
    ASSERT_GT(size, 0);
    const std::string text(line, static_cast<size_t>(size));
    EXPECT_TRUE(text.starts_with("<30>")) << text;
    EXPECT_TRUE(text.ends_with("]: 192.0.2.1 GetInfo 200 3 ms")) << text;
}

TEST_F(AuditLogTest, WhatCannotBeWrittenIsToldOnce) {
    store_.Change([this](AgentSettings& settings) {
        settings.logFails = true;
        settings.badLogFile = dir_ / "bad";
        return true;
    });
    auto told = [&](const std::string& path, const char* reason) {
        settings_.auditLog = path;
        AuditLog log(failures_, dir_ / "no log");
        for (int i = 0; i < 3; ++i) log.NoteRequest(settings_, 0, "GetInfo", "200", 0);
        const std::string text = test::ReadFile(dir_ / "bad");
        const std::string line = "\t Cannot write log " + path + ": " + reason + "\n";
        return test::Count(text, line);
    };
    EXPECT_EQ(told(dir_ / "none/audit", "No such file or directory"), 1u);
    EXPECT_EQ(told(dir_.Path(), "Is a directory"), 1u);
    EXPECT_EQ(told("syslog", "No such file or directory"), 1u);
}

}  // namespace
}  // namespace zot
