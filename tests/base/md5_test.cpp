#include "base/md5.h"

#include <gtest/gtest.h>

#include "tests/support/hash_cases.h"

namespace zot {
namespace {

Md5 Make() { return Md5(); }

// RFC 1321, appendix A.5.
TEST(Md5, GivesThePublishedDigests) {
    const std::pair<std::string, std::string> published[] = {
        {"", "d41d8cd98f00b204e9800998ecf8427e"},
        {"a", "0cc175b9c0f1b6a831c399e269772661"},
        {"abc", "900150983cd24fb0d6963f7d28e17f72"},
        {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
        {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
        {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
         "d174ab98d277d9f5a5611c2c9f419d9f"},
        {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
         "57edf4a22be3c955ac49da2e2107b67a"}};
    for (const auto& [text, digest] : published) {
        EXPECT_EQ(DigestOf(Make, text), digest) << text;
        EXPECT_EQ(ToHex(Md5Digest(text.data(), text.size())), digest) << text;
    }
}

TEST(Md5, PadsEveryLength) { ExpectEveryLength(Make, "c7b563628c289aeb7b2cb9547692e404"); }

TEST(Md5, PiecesGiveTheDigestOfTheWhole) { ExpectPiecesEqualWhole(Make); }

TEST(Md5, StartsAgainAfterInit) {
    Md5 md5;
    md5.Update("left over", 9);
    md5.Init();
    md5.Update("abc", 3);
    uint8_t digest[Md5::kDigestSize];
    md5.Final(digest);
    EXPECT_EQ(ToHex(digest), "900150983cd24fb0d6963f7d28e17f72");
}

}  // namespace
}  // namespace zot
