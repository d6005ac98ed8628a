#include "protocol/packet.h"

#include <gtest/gtest.h>

#include <string>

#include "base/twofish.h"
#include "client/request_packet.h"

namespace zot {
namespace {

constexpr char kPassword[] = "secret";

class PacketTest : public testing::Test {
  protected:
    static void SetUpTestSuite() { TwofishInitialise(); }

    // The decoded request text, or "invalid".
    std::string Decode(std::string_view bytes, std::string_view password = kPassword) {
        VyString packet(bytes);
        RequestPacket request;
        if (!DecodeRequest(packet, password, 0, log_, request)) {
            EXPECT_TRUE(request.sessionKey.Empty());
            return "invalid";
        }
        return std::string(request.text);
    }

    SettingsStore store_;
    Log log_{store_};
};

std::string Le(uint64_t value, int width) {
    std::string bytes;
    for (; width > 0; --width, value >>= 8) bytes += static_cast<char>(value & 0xff);
    return bytes;
}

const std::string kEmptyPacket = Le(10, 4) + "\x03\x12" + Le(0, 2) + Le(0, 2) + Le(0, 4);

TEST_F(PacketTest, CompletenessFollowsTheAnnouncedLength) {
    EXPECT_EQ(CheckPacket(""), PacketState::kIncomplete);
    EXPECT_EQ(CheckPacket(kEmptyPacket.substr(0, 13)), PacketState::kIncomplete);
    EXPECT_EQ(CheckPacket(kEmptyPacket), PacketState::kComplete);
    EXPECT_EQ(CheckPacket(kEmptyPacket + "x"), PacketState::kComplete);
    EXPECT_EQ(CheckPacket(Le(0, 4)), PacketState::kIncomplete);
    EXPECT_EQ(CheckPacket(Le(0, 14)), PacketState::kComplete);
    EXPECT_EQ(CheckPacket(Le(0xFFFFFFFF, 4)), PacketState::kTooLarge);
    EXPECT_EQ(CheckPacket(Le(kMaxPacketSize - 3, 4)), PacketState::kTooLarge);
    EXPECT_EQ(CheckPacket(Le(kMaxPacketSize - 4, 4)), PacketState::kIncomplete);
}

TEST_F(PacketTest, ThePasswordDecides) {
    EXPECT_EQ(Decode(kEmptyPacket, ""), "");
    EXPECT_EQ(Decode(kEmptyPacket), "invalid");
    std::string packet = client::BuildRequest(kPassword, "key", "GetInfo\n\r");
    EXPECT_EQ(Decode(packet), "GetInfo\n\r");
    EXPECT_EQ(Decode(packet, "Secret"), "invalid");
    EXPECT_EQ(Decode(packet, ""), "invalid");
    packet[8] ^= 1;
    EXPECT_EQ(Decode(packet), "invalid");
}

TEST_F(PacketTest, EveryLengthIsChecked) {
    const std::string good = client::BuildRequest(kPassword, "key", "GetInfo\n\r");
    EXPECT_EQ(Decode(good + "x"), "invalid");
    EXPECT_EQ(Decode(good.substr(0, good.size() - 1)), "invalid");
    // Offsets and widths of the password, key and request lengths and of the signature bytes.
    const struct {
        size_t offset;
        int width;
    } fields[] = {{6, 2}, {24, 2}, {29, 4}, {4, 1}, {5, 1}};
    for (auto field : fields) {
        for (uint64_t value : {uint64_t{0x7f}, uint64_t{0x7fff}, uint64_t{0xffffffff}}) {
            std::string bad = good;
            auto width = static_cast<size_t>(field.width);
            bad.replace(field.offset, width, Le(value, field.width));
            EXPECT_EQ(Decode(bad), "invalid") << field.offset << " " << value;
        }
    }
    // Bytes behind the request are allowed as long as they are announced.
    std::string padded = good + "padding";
    padded.replace(0, 4, Le(padded.size() - 4, 4));
    EXPECT_EQ(Decode(padded), "GetInfo\n\r");
}

TEST_F(PacketTest, AChangedByteSpoilsItselfAndTheNextSixteen) {
    const std::string text = "TEST-FileExists\n/etc/hosts/and/some/more/of/it\n\n\n\r";
    std::string packet = client::BuildRequest(kPassword, "key", text);
    packet[packet.size() - text.size() + 5] ^= 0x20;
    std::string seen = Decode(packet);
    ASSERT_EQ(seen.size(), text.size());
    EXPECT_EQ(seen.substr(0, 5), text.substr(0, 5));
    EXPECT_EQ(seen[5], text[5] ^ 0x20);
    EXPECT_NE(seen.substr(6, 16), text.substr(6, 16));
    EXPECT_EQ(seen.substr(22), text.substr(22));
}

}  // namespace
}  // namespace zot
