#include "base/sha2.h"

#include <gtest/gtest.h>

#include <random>

#include "base/platform/hash_cpu.h"
#include "tests/support/hash_cases.h"

namespace zot {
namespace {

// Runs `check` with a maker for the code chosen at start, the portable and the accelerated code.
template <typename Hash, typename Check>
void WithEach(typename Hash::Compress portable, typename Hash::Compress accelerated, Check check) {
    {
        SCOPED_TRACE("chosen");
        check([] { return Hash(); });
    }
    for (auto compress : {portable, accelerated}) {
        if (compress == nullptr) continue;
        SCOPED_TRACE(compress == portable ? "portable" : "accelerated");
        check([compress] { return Hash(compress); });
    }
}

// The examples published with FIPS 180.
const std::string kTwoBlocks256 = "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq";
const std::string kTwoBlocks512 =
    "abcdefghbcdefghicdefghijdefghijkefghijklfghijklmghijklmn"
    "hijklmnoijklmnopjklmnopqklmnopqrlmnopqrsmnopqrstnopqrstu";

TEST(Sha256, GivesThePublishedDigestsForEveryLengthAndPiece) {
    WithEach<Sha256>(Sha256Portable, AcceleratedHashes().sha256, [](auto make) {
        EXPECT_EQ(DigestOf(make, "abc"),
                  "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
        EXPECT_EQ(DigestOf(make, kTwoBlocks256),
                  "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
        EXPECT_EQ(DigestOf(make, std::string(1000000, 'a')),
                  "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
        ExpectEveryLength(make, "c603981eabc8e6e93a10e31ec33d02e02625d3b685e0e0b9298d36e0bac705e5");
        ExpectPiecesEqualWhole(make);
    });
}

TEST(Sha512, GivesThePublishedDigestsForEveryLengthAndPiece) {
    WithEach<Sha512>(Sha512Portable, AcceleratedHashes().sha512, [](auto make) {
        EXPECT_EQ(DigestOf(make, "abc"),
                  "ddaf35a193617abacc417349ae20413112e6fa4e89a97ea20a9eeee64b55d39a"
                  "2192992a274fc1a836ba3c23a3feebbd454d4423643ce80e2a9ac94fa54ca49f");
        EXPECT_EQ(DigestOf(make, kTwoBlocks512),
                  "8e959b75dae313da8cf4f72814fc143f8f7779c6eb9f7fa17299aeadb6889018"
                  "501d289e4900f7e4331b99dec4b5433ac7d329eeb6dd26545e96e55b874be909");
        EXPECT_EQ(DigestOf(make, std::string(1000000, 'a')),
                  "e718483d0ce769644e2e42c7bc15b4638e1f98b13b2044285632a803afa973eb"
                  "de0ff244877ea60a4cb0432ce577c31beb009c5c2c49aa2e4eadb217ad8cc09b");
        ExpectEveryLength(make,
                          "07278c6d5ba675874c4201406f2866a6f535ef951c750ab73bf2ae4efa7ef2e0"
                          "b94ff60132d3843d036b32a2f215b7c2486e547c6246daea64c8962ec072271c");
        ExpectPiecesEqualWhole(make);
    });
}

// Random states and blocks, at addresses of every alignment.
template <typename Word, typename Compress>
void ExpectSameCompression(Compress portable, Compress accelerated) {
    if (accelerated == nullptr) GTEST_SKIP() << "this processor has no instructions for it";
    constexpr size_t kMost = 40;
    std::mt19937_64 random(20240229);
    std::vector<uint8_t> bytes(kMost * 16 * sizeof(Word) + 16);
    for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random());
    for (size_t count = 0; count <= kMost; ++count) {
        Word expected[8];
        for (Word& word : expected) word = static_cast<Word>(random());
        Word actual[8];
        std::copy(expected, expected + 8, actual);
        portable(expected, bytes.data() + count % 16, count);
        accelerated(actual, bytes.data() + count % 16, count);
        EXPECT_TRUE(std::equal(expected, expected + 8, actual)) << count;
    }
}

TEST(Sha256, AcceleratedCodeComputesWhatThePortableDoes) {
    ExpectSameCompression<uint32_t>(Sha256Portable, AcceleratedHashes().sha256);
}

TEST(Sha512, AcceleratedCodeComputesWhatThePortableDoes) {
    ExpectSameCompression<uint64_t>(Sha512Portable, AcceleratedHashes().sha512);
}

}  // namespace
}  // namespace zot
