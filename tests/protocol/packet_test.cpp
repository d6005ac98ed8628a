#include "protocol/packet.h"

#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "base/twofish.h"
#include "client/request_packet.h"
#include "protocol/length_codec.h"
#include "protocol/packet_cipher.h"
#include "protocol/packet_intake.h"
#include "tests/support/hex.h"
#include "tests/support/temp_dir.h"

namespace zot {
namespace {

constexpr char kPassword[] = "secret";

class PacketTest : public testing::Test {
  protected:
    static void SetUpTestSuite() { TwofishInitialise(); }

    // The decoded request text, or "invalid".
    std::string Decode(std::string_view bytes, std::string_view password = kPassword) {
        std::string packet(bytes);
        RequestPacket request;
        if (!DecodeRequest(packet, PasswordKey(password), 0, log_, request)) {
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
    // Bytes after the request are allowed if they are announced.
    std::string padded = good + "padding";
    padded.replace(0, 4, Le(padded.size() - 4, 4));
    EXPECT_EQ(Decode(padded), "GetInfo\n\r");
}

// What the trace log says about a packet, without times.
std::vector<std::string> Trace(const std::function<void(Log&)>& decode) {
    test::TempDir dir;
    SettingsStore store;
    store.Change([&dir](AgentSettings& settings) {
        settings.verboseLogFile = dir / "log";
        return settings.verbose = settings.debug = true;
    });
    Log log(store);
    decode(log);
    std::vector<std::string> lines;
    std::istringstream text(test::ReadFile(dir / "log"));
    for (std::string line; std::getline(text, line);) lines.push_back(line.substr(24));
    return lines;
}

TEST_F(PacketTest, AStrangerIsForgottenButForWhatTheTraceTells) {
    const PasswordKey password(kPassword);
    const client::RequestFields good = client::MakeRequest(kPassword, "key", "GetInfo\n\r");
    std::vector<client::RequestFields> packets(9, good);
    packets[1].digest[15] ^= 1;
    packets[2].digest.clear();
    packets[3].signature[1] = 0x13;
    packets[4].digestLength = 300;
    packets[5].digest[0] ^= 1;
    packets[5].keyLength = 0x1234;
    packets[6].digest[0] ^= 1;
    packets[6].textLength = 0x12345678;
    packets[7].digest[0] ^= 1;
    packets[7].encryptedText.clear();
    packets[8].digest.push_back('x');
    for (const client::RequestFields& fields : packets) {
        const std::string bytes = client::Serialise(fields);
        RequestPacket request;
        bool valid = false;
        const auto expected = Trace([&](Log& log) {
            std::string packet = bytes;
            valid = DecodeRequest(packet, password, 0, log, request);
        });
        for (size_t part : {size_t{1}, size_t{7}, size_t{30}}) {
            PacketIntake intake;
            for (size_t at = 0; at < bytes.size(); at += part) {
                intake.Take(bytes.substr(at, part), password);
            }
            EXPECT_EQ(
                Trace([&](Log& log) { EXPECT_EQ(intake.Open(password, 0, log, request), valid); }),
                expected);
            EXPECT_EQ(intake.IsStranger(), &fields != &packets[0]);
            EXPECT_EQ(intake.Held() == 0, intake.IsStranger());
        }
    }
}

using Data = std::vector<uint8_t>;

TEST_F(PacketTest, Vectors) {
    std::ifstream file(ZOT_TEST_DATA "/packet_cipher.txt");
    int count = 0;
    for (std::string line; std::getline(file, line);) {
        if (line[0] == '#') continue;
        auto fields = HexFields(line);
        ASSERT_EQ(fields.size(), 3u);
        PacketCipher cipher({reinterpret_cast<const char*>(fields[0].data()), fields[0].size()});
        Data sealed(fields[1].size());
        cipher.Encrypt(fields[1], sealed.data());
        EXPECT_EQ(sealed, fields[2]) << line;
        sealed.push_back(0xA5);
        cipher.Decrypt(fields[2], sealed.data());
        EXPECT_EQ(sealed.back(), 0xA5) << "nothing is written past the end";
        sealed.pop_back();
        EXPECT_EQ(sealed, fields[1]) << line;
        count++;
    }
    EXPECT_EQ(count, 31);
}

TEST(LengthCodec, WritesLowBytesFirstAndNothingElse) {
    const char* expected[] = {"eeeeeeeeee", "04eeeeeeee", "0403eeeeee", "040302eeee", "040302ffee"};
    for (int digits = 0; digits <= 4; digits++) {
        uint8_t out[5] = {0xEE, 0xEE, 0xEE, 0xEE, 0xEE};
        EncodeLength(0xFF020304, digits, out);
        EXPECT_EQ(ToHex(out), expected[digits]);
    }
}

TEST(LengthCodec, ReadsOnlyTheWidthsOfTheProtocol) {
    const uint8_t bytes[] = {0x81, 0xF2, 0xF3, 0xF4};
    const uint32_t expected[] = {0, 0x81, 0xF281, 0, 0xF4F3F281};
    for (int digits = 0; digits <= 4; digits++) {
        EXPECT_EQ(DecodeLength(bytes, digits), expected[digits]) << digits;
    }
}

TEST(LengthCodecDeathTest, OtherWidthsFailAnAssertion) {
    uint8_t bytes[8] = {};
    for (int digits : {-1, 5}) {
        EXPECT_DEATH(EncodeLength(1, digits, bytes), "zot_const(:|, line )145");
        EXPECT_DEATH(DecodeLength(bytes, digits), "zot_const(:|, line )160");
    }
}

}  // namespace
}  // namespace zot
