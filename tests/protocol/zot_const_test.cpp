#include "protocol/zot_const.h"

#include <gtest/gtest.h>

#include "tests/support/hex.h"

namespace zot {
namespace {

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
