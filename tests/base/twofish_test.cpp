#include "base/twofish.h"

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "base/twofish_internal.h"
#include "tests/support/hex.h"

namespace zot {
namespace {

const TwofishFunctions kReal = {
    .prepare = [](TwofishKey& key, std::span<const uint8_t> bytes) { key.Prepare(bytes); },
    .encrypt = [](const TwofishKey& key, const uint8_t* in,
                  uint8_t* out) { key.EncryptBlock(in, out); },
    .decrypt = [](const TwofishKey& key, const uint8_t* in,
                  uint8_t* out) { key.DecryptBlock(in, out); }};

// Calls left until the faulty functions below go wrong.
int callsLeft = 0;

void BadPrepare(TwofishKey& key, std::span<const uint8_t> bytes) {
    key.Prepare(bytes.size() == 16 && callsLeft-- <= 0 ? bytes.first(15) : bytes);
}

void UnpaddedPrepare(TwofishKey& key, std::span<const uint8_t> bytes) {
    key.Prepare(bytes.size() == 17 ? bytes.first(16) : bytes);
}

void BadEncrypt(const TwofishKey& key, const uint8_t* in, uint8_t* out) {
    key.EncryptBlock(in, out);
    if (callsLeft-- <= 0) out[15] ^= 1;
}

void BadDecrypt(const TwofishKey& key, const uint8_t* in, uint8_t* out) {
    key.DecryptBlock(in, out);
    if (callsLeft-- <= 0) out[0] ^= 128;
}

std::string FatalText(const std::string& message) {
    return "^\nTwofish fatal error: " + message + "\nProcess terminated\n$";
}

TEST(Twofish, PublishedSequences) {
    TwofishInitialise();
    std::ifstream file(ZOT_TEST_DATA "/twofish_ecb_sequence.txt");
    int count = 0;
    for (std::string line; std::getline(file, line);) {
        if (line[0] == '#') continue;
        auto fields = HexFields(line.substr(line.find(' ') + 1));
        ASSERT_EQ(fields.size(), 3u);
        TwofishKey key(fields[0]);
        std::vector<uint8_t> block(fields[1]);
        key.EncryptBlock(block.data(), block.data());
        EXPECT_EQ(block, fields[2]) << line;
        key.DecryptBlock(block.data(), block.data());
        EXPECT_EQ(block, fields[1]) << line;
        count++;
    }
    EXPECT_EQ(count, 147);
}

TEST(Twofish, WipeLeavesNothing) {
    TwofishInitialise();
    TwofishKey key(std::vector<uint8_t>(20, 7));
    key.Wipe();
    std::vector<char> zeros(sizeof(TwofishSchedule));
    EXPECT_EQ(memcmp(&key.Schedule(), zeros.data(), zeros.size()), 0);
}

struct Fault {
    const char* message;
    int callsBefore;
    decltype(TwofishFunctions::prepare) prepare = kReal.prepare;
    decltype(TwofishFunctions::encrypt) encrypt = kReal.encrypt;
    decltype(TwofishFunctions::decrypt) decrypt = kReal.decrypt;
};

TEST(TwofishDeathTest, SelfTestNoticesEachFault) {
    TwofishInitialise();
    const Fault faults[] = {
        {"Twofish encryption failure", 0, kReal.prepare, BadEncrypt},
        {"Twofish encryption failure", 2, kReal.prepare, BadEncrypt},
        {"Twofish decryption failure", 0, kReal.prepare, kReal.encrypt, BadDecrypt},
        {"Twofish decryption failure in sequence", 3, kReal.prepare, kReal.encrypt, BadDecrypt},
        {"Twofish decryption failure in sequence", 149, kReal.prepare, kReal.encrypt, BadDecrypt},
        {"Twofish encryption failure in sequence", 20, BadPrepare},
        {"Odd sized keys do not expand properly", 0, UnpaddedPrepare},
    };
    for (const Fault& fault : faults) {
        callsLeft = fault.callsBefore;
        EXPECT_EXIT(TwofishSelfTest({fault.prepare, fault.encrypt, fault.decrypt}),
                    testing::ExitedWithCode(3), FatalText(fault.message));
    }
}

TEST(TwofishDeathTest, WrongUseIsFatal) {
    // The child starts afresh, so the cipher is not initialised in it until it says so.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const std::vector<uint8_t> bytes(33);
    EXPECT_EXIT(TwofishKey({bytes.data(), 20}), testing::ExitedWithCode(3),
                FatalText("Twofish implementation was not initialised\\."));
    EXPECT_EXIT((TwofishInitialise(), TwofishKey(bytes)), testing::ExitedWithCode(3),
                FatalText("Twofish_prepare_key: illegal key length"));
    TwofishSchedule schedule;
    EXPECT_EXIT(TwofishExpandKey({bytes.data(), 20}, schedule), testing::ExitedWithCode(3),
                FatalText("Twofish h\\(\\): Illegal argument"));
}

}  // namespace
}  // namespace zot
