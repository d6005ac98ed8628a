#include "protocol/packet_cipher.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "base/ciplib.h"
#include "tests/support/hex.h"

namespace zot {
namespace {

using Data = std::vector<uint8_t>;

class PacketCipherTest : public testing::Test {
  protected:
    void SetUp() override { TwofishInitialise(); }
};

// The definition taken literally: a shift register that moves by one byte for every byte.
Data DecryptByteByByte(const std::string& keyString, const Data& in) {
    Sha1Hash hash;
    TwofishKey key(
        hash.GetHash({reinterpret_cast<const uint8_t*>(keyString.data()), keyString.size()}));
    Data shift(16, 0xFF);
    Data stream(16);
    key.EncryptBlock(shift.data(), shift.data());
    Data out;
    for (uint8_t cipher : in) {
        key.EncryptBlock(shift.data(), stream.data());
        out.push_back(cipher ^ stream[0]);
        shift.erase(shift.begin());
        shift.push_back(cipher);
    }
    return out;
}

TEST_F(PacketCipherTest, Vectors) {
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
        cipher.Decrypt(sealed, sealed.data());
        EXPECT_EQ(sealed, fields[1]) << line;
        count++;
    }
    EXPECT_EQ(count, 31);
}

TEST_F(PacketCipherTest, EveryLengthDecryptsAsTheDefinitionSays) {
    PacketCipher cipher("session");
    for (size_t size = 0; size <= 80; size++) {
        Data in;
        for (size_t i = 0; i < size; i++) in.push_back(static_cast<uint8_t>(i * 37 + size));
        const Data expected = DecryptByteByByte("session", in);
        Data apart(size + 1, 0xA5);
        cipher.Decrypt(in, apart.data());
        EXPECT_EQ(apart.back(), 0xA5) << "nothing is written past the end";
        apart.pop_back();
        EXPECT_EQ(apart, expected) << size;
        Data inPlace = in;
        cipher.Decrypt(inPlace, inPlace.data());
        EXPECT_EQ(inPlace, expected) << size;
        cipher.Encrypt(inPlace, inPlace.data());
        EXPECT_EQ(inPlace, in) << size;
    }
}

TEST_F(PacketCipherTest, OneWrongByteSpoilsItselfAndTheSixteenAfterIt) {
    PacketCipher cipher("key");
    const Data text(60, 'z');
    Data sealed(text.size());
    cipher.Encrypt(text, sealed.data());
    sealed[20] ^= 4;
    cipher.Decrypt(sealed, sealed.data());
    EXPECT_EQ(sealed[20], 'z' ^ 4);
    EXPECT_NE(Data(sealed.begin() + 21, sealed.begin() + 37), Data(16, 'z'));
    EXPECT_EQ(Data(sealed.begin(), sealed.begin() + 20), Data(20, 'z'));
    EXPECT_EQ(Data(sealed.begin() + 37, sealed.end()), Data(23, 'z'));
}

}  // namespace
}  // namespace zot
