#include "client/request_packet.h"

#include <gtest/gtest.h>

#include <fstream>
#include <set>
#include <sstream>

#include "tests/support/decrypt.h"
#include "tests/support/hex.h"

namespace zot::client {
namespace {

std::string Bytes(const std::string& hex) {
    std::vector<uint8_t> bytes = FromHex(hex);
    return {bytes.begin(), bytes.end()};
}

TEST(RequestPacket, KnownPackets) {
    std::ifstream file(ZOT_TEST_DATA "/packets.txt");
    int requests = 0, replies = 0;
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with('#')) continue;
        std::istringstream row(line);
        std::string kind, password, key, text, packet;
        row >> kind >> password >> key >> text >> packet;
        if (kind == "request") {
            ++requests;
            EXPECT_EQ(BuildRequest(Bytes(password), Bytes(key), Bytes(text)), Bytes(packet))
                << line;
        } else {
            ++replies;
            EXPECT_EQ(test::Decrypt(Bytes(key), Bytes(packet).substr(4)), Bytes(text)) << line;
        }
    }
    EXPECT_EQ(requests, 5);
    EXPECT_EQ(replies, 3);
}

TEST(RequestPacket, TextEscapesLineBreaks) {
    EXPECT_EQ(ComposeRequest("GetInfo", {}), "GetInfo\n\r");
    std::vector<std::string> params = {"/etc", "", "a\r\nb"};
    EXPECT_EQ(ComposeRequest("TEST-UNC", params), "TEST-UNC\n/etc\n\na%0D%0Ab\n\r");
}

TEST(RequestPacket, ReplyNeedsCodeAndEndMark) {
    Answer answer;
    ASSERT_EQ(ParseReply("301\nno such\rfile\n\nlast\n\r", answer), 1);
    EXPECT_EQ(answer.code, "301");
    EXPECT_EQ(answer.lines, (std::vector<std::string>{"no such\rfile", "", "last"}));
    ASSERT_EQ(ParseReply("200\n\r", answer), 1);
    EXPECT_TRUE(answer.lines.empty());
    for (const char* bad : {"", "\r", "200", "200\n", "200\r", "20\n\n\r", "2x0\n\r", "2000\n\r"}) {
        EXPECT_EQ(ParseReply(bad, answer), 0) << bad;
    }
}

TEST(RequestPacket, SessionKeysHave16BytesAndNeverRepeat) {
    std::set<std::string> keys;
    for (int i = 0; i < 100; ++i) {
        std::string key = RandomSessionKey();
        EXPECT_EQ(key.size(), 16U);
        keys.insert(key);
    }
    EXPECT_EQ(keys.size(), 100U);
}

}  // namespace
}  // namespace zot::client
