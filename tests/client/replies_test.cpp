#include "client/replies.h"

#include <gtest/gtest.h>

#include <sstream>

#include "commands/command_table.h"

namespace zot::client {
namespace {

std::string Show(const Value& value) {
    if (std::holds_alternative<std::monostate>(value)) return "nothing";
    if (auto flag = std::get_if<bool>(&value)) return *flag ? "true" : "false";
    if (auto integer = std::get_if<int64_t>(&value)) return std::to_string(*integer);
    if (auto number = std::get_if<double>(&value)) {
        std::ostringstream text;
        text << *number;
        return text.str();
    }
    if (auto text = std::get_if<std::string>(&value)) return "'" + *text + "'";
    std::string list = "[";
    for (const std::string& entry : std::get<std::vector<std::string>>(value)) list += entry + ";";
    return list + "]";
}

// All records as "name=value ..." lines, or the error text.
std::string Show(const std::string& command, const std::vector<std::string>& params,
                 const std::vector<std::string>& lines, time_t now = 0) {
    std::vector<Record> records;
    std::string error, text;
    if (!ReadReply(command, params, {"200", lines}, records, error, now)) return error;
    for (const Record& record : records) {
        for (const Field& field : record) text += field.name + "=" + Show(field.value) + " ";
        text += "\n";
    }
    return text;
}

TEST(Replies, HaveNamedFields) {
    struct Case {
        std::string command;
        std::vector<std::string> params, lines;
        std::string expected;
    } cases[] = {
        {"TEST-UNC",
         {"/"},
         {"  4000", "  1000", "  -600", "3"},
         "path='/' size_bytes=4000 used_percent=125 free_bytes=1000 available_bytes=-600 "
         "query_seconds=0.003 \n"},
        {"TEST-FolderSize", {"/a"}, {"  1536"}, "path='/a' size_bytes=1536 \n"},
        {"TEST-CountFiles", {"/a", "*"}, {"7"}, "folder='/a' mask='*' count=7 \n"},
        {"TEST-FileCompare",
         {"3", "/a", "x"},
         {"1"},
         "path='/a' mode='find_text' with='x' equal=true \n"},
        {"TEST-FileHash", {"/a", "2", "0"}, {"ab"}, "path='/a' algorithm='sha256' digest='ab' \n"},
        {"TEST-FileHash",
         {"/a", "1", "9"},
         {"File size 12 MB"},
         "path='/a' algorithm='md5' digest=nothing note='File size 12 MB' \n"},
        {"TEST-Process", {"0", "sshd"}, {"2"}, "name='sshd' count=2 \n"},
        {"TEST-CPU", {}, {"97.2500"}, "usage_percent=97.25 \n"},
        {"TEST-ShellScript", {}, {"a%0Ab", "x%0D%0Ay%0D%0A"}, "result='a\nb' output=[x;y;] \n"},
        {"TEST-TCP",
         {"db", "5432"},
         {"12", ""},
         "service='db' port=5432 answer_seconds=0.012 received='' \n"},
        {"TEST-TextLog",
         {"/l", "x"},
         {"     4", "a line", "1", "     9", "    20", "1794736800", "    20"},
         "path='/l' match_offset=4 line='a line' more=true position=9 last_size=20 "
         "last_modified=1794736800 file_size_bytes=20 \n"},
        {"TEST-TextLog2",
         {"/l*"},
         {"0", "", "0", "9", "9", "1", "9", "0", "/log"},
         "path='/log' match_offset=0 line='' more=false position=9 last_size=9 last_modified=1 "
         "file_size_bytes=9 first_criterion=false \n"},
        {"GetProcessesList",
         {},
         {"init%0D%0Asshd: a%0D%0A"},
         "command='init' \ncommand='sshd: a' \n"},
        {"GetFilesList",
         {"/", "*", "1", "1", "0", "0", "1", "0", "1"},
         {"/", "2", "4", "etc", "16", "  4096", "01022026030405", "f%0Ag", "1", "     7",
          "01022026030406"},
         "name='etc' attributes=16 folder=true size_bytes=4096 modified='2026-02-01T03:04:05' \n"
         "name='f\ng' attributes=1 folder=false size_bytes=7 modified='2026-02-01T03:04:06' \n"},
        {"GetFilesList", {"/none"}, {"/none/", "0", "2"}, ""},
        {"NoSuchCommand", {}, {"a", "b"}, "value_1='a' value_2='b' \n"},
        {"SetSettings", {}, {}, "\n"},
        {"TEST-CPU", {}, {"nan"}, "not a number in the agent's reply: nan"},
        {"TEST-UNC", {"/"}, {"1"}, "the agent's reply is too short: it has no free_bytes"},
        {"GetFilesList", {"/"}, {"/", "9", "2", "a", "0"}, "the agent's list of files is damaged"},
        {"GetFilesList", {"/"}, {"/", "9", "0"}, "the agent's list of files is damaged"},
    };
    for (const Case& c : cases) EXPECT_EQ(Show(c.command, c.params, c.lines), c.expected);
}

TEST(Replies, TimesOfFilesFindTheirZone) {
    // 12:00 UTC; the file is 90 minutes old, and the agent's clock shows 16:00 (UTC+4).
    const time_t now = 1767268800;
    std::string expected =
        "path='/f' size_bytes=5 changed='2026-01-01T14:30:10' modified='2026-01-01T14:30:10' "
        "modified_timestamp_seconds=1767263410 age_seconds=5340 \n";
    std::vector<std::string> lines = {"     5", "01012026143010", "01012026143010", "/f", "min",
                                      "89"};
    EXPECT_EQ(Show("TEST-FileExists", {"/f"}, lines, now), expected);
    EXPECT_EQ(Show("TEST-FileExists", {"/f"}, lines, now + 200), expected) << "clocks differ";
}

TEST(Replies, InformationAndSettings) {
    std::vector<std::string> lines = {"AgentVersion=1.36",
                                      "OpenedConnections=4711",
                                      "Available tests=TCP%0D%0ACPU Usage%0D%0A",
                                      "Enabled tests=01",
                                      "Timeout=4000",
                                      "RunningOS=FreeBSD 14.1-RELEASE FreeBSD 14.1",
                                      "OkLogFile=/a",
                                      "Password=secret",
                                      "IPFilterAddr=10.0.0.1%0D%0A10.0.0.2",
                                      "AllowRManage=1"};
    EXPECT_EQ(Show("GetInfo", {}, lines),
              "agent_version='1.36' opened_connections=4711 timeout=4000 "
              "running_os='FreeBSD 14.1-RELEASE FreeBSD 14.1' system='FreeBSD 14.1' "
              "available_tests=[TCP;CPU Usage;] enabled_tests=[CPU Usage;] available_actions=[] "
              "enabled_actions=[] \n");
    EXPECT_EQ(Show("GetSettings", {}, lines),
              "tcp=false cpu_usage=true timeout=4000 ok_log_file='/a' password='********' "
              "ip_filter_addr=[10.0.0.1;10.0.0.2;] allow_r_manage=true \n");
}

// A new command must name the fields of its reply.
TEST(Replies, EveryCommandThatAnswersHasFields) {
    for (const Command& command : CommandTable()) {
        Reply reply;
        bool refused = false;
        if (command.check && !command.name.starts_with("ACT-")) {
            command.check("", AgentSettings(), reply);
            refused = reply.Code() == "500";
        }
        bool bare = command.name == "SetSettings" || command.name == "UpgradeCode";
        EXPECT_EQ(FieldNames(command.name).empty(), refused || bare) << command.name;
    }
}

}  // namespace
}  // namespace zot::client
