#include "base/ciplib.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "tests/support/hex.h"

namespace zot {
namespace {

std::span<const uint8_t> Bytes(const std::string& text) {
    return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

TEST(Sha1, PublishedDigests) {
    struct {
        std::string data;
        const char* digest;
    } const cases[] = {
        {"", "da39a3ee5e6b4b0d3255bfef95601890afd80709"},
        {"abc", "a9993e364706816aba3e25717850c26c9cd0d89d"},
        {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
         "84983e441c3bd26ebaae4aa1f95129e5e54670f1"},
        {std::string(1000000, 'a'), "34aa973cd4c4daa4f61eeb2bdbad27316534016f"},
    };
    Sha1Hash hash;
    for (const auto& c : cases) EXPECT_EQ(ToHex(hash.GetHash(Bytes(c.data))), c.digest);
}

TEST(Sha1, PiecesGiveTheDigestOfTheWhole) {
    const std::string data(200, 'x');
    for (size_t size = 0; size <= data.size(); size++) {
        Sha1Hash whole;
        Sha1Hash pieces;
        pieces.Update({});
        for (size_t at = 0; at < size; at += 7) {
            pieces.Update(Bytes(data.substr(at, std::min<size_t>(7, size - at))));
        }
        pieces.Final();
        EXPECT_EQ(pieces.GetHash(), whole.GetHash(Bytes(data.substr(0, size)))) << size;
    }
}

TEST(Sha1DeathTest, WrongOrderOfCallsFailsAnAssertion) {
    Sha1Hash unfinished;
    unfinished.Update(Bytes("abc"));
    EXPECT_DEATH(unfinished.GetHash(), "ciplib(:|, line )240");
    EXPECT_DEATH(Sha1Hash().Final(), "ciplib(:|, line )207");
    EXPECT_EQ(ToHex(unfinished.GetHash(Bytes("abc"))), "a9993e364706816aba3e25717850c26c9cd0d89d")
        << "hashing data starts afresh";
    EXPECT_DEATH((unfinished.Final()), "ciplib(:|, line )207") << "a digest can be taken once";
}

}  // namespace
}  // namespace zot
