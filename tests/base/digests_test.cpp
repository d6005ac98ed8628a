#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "base/md5.h"
#include "base/platform/hash.h"
#include "base/sha1.h"
#include "base/sha2.h"
#include "tests/support/hex.h"

namespace zot {
namespace {

std::span<const uint8_t> Bytes(const std::string& text) {
    return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

std::vector<uint8_t> Pattern(size_t size) {
    std::vector<uint8_t> bytes(size);
    for (size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<uint8_t>(i * i * 7 + i * 13 + (i >> 8));
    }
    return bytes;
}

// The digest of `data` given in pieces of `piece` bytes, in hexadecimal. `make` returns a hash
// object that has started a message.
template <typename Make>
std::string DigestInPieces(Make make, std::span<const uint8_t> data, size_t piece) {
    auto hash = make();
    for (; !data.empty(); data = data.subspan(std::min(piece, data.size()))) {
        hash.Update(data.first(std::min(piece, data.size())));
    }
    uint8_t digest[decltype(hash)::kDigestSize];
    hash.Final(digest);
    return ToHex(digest);
}

// `everyLength` is the digest of the digests of the first 0, 1, ... 300 bytes of the pattern: every
// place where the padding can fall.
template <typename Make>
void ExpectDigests(Make make, const std::vector<std::pair<std::string, std::string>>& published,
                   const std::string& everyLength) {
    for (const auto& [text, digest] : published) {
        EXPECT_EQ(DigestInPieces(make, Bytes(text), text.size()), digest) << text.substr(0, 100);
    }
    const std::vector<uint8_t> pattern = Pattern(3000);
    std::vector<uint8_t> digests;
    for (size_t size = 0; size <= 300; ++size) {
        auto digest = FromHex(DigestInPieces(make, std::span(pattern).first(size), 300));
        digests.insert(digests.end(), digest.begin(), digest.end());
    }
    EXPECT_EQ(DigestInPieces(make, digests, digests.size()), everyLength);
    const std::string whole = DigestInPieces(make, pattern, pattern.size());
    for (size_t piece : {1U, 3U, 63U, 64U, 65U, 127U, 128U, 129U, 200U, 1000U}) {
        EXPECT_EQ(DigestInPieces(make, pattern, piece), whole) << piece;
    }
}

// The code chosen at start, the portable and the accelerated code.
template <typename Hash>
void ExpectDigestsOfEach(typename Hash::Compress portable, typename Hash::Compress accelerated,
                         const std::vector<std::pair<std::string, std::string>>& published,
                         const std::string& everyLength) {
    ExpectDigests([] { return Hash(); }, published, everyLength);
    for (auto compress : {portable, accelerated}) {
        if (compress == nullptr) continue;
        SCOPED_TRACE(compress == portable ? "portable" : "accelerated");
        ExpectDigests([compress] { return Hash(compress); }, published, everyLength);
    }
}

// The examples published with FIPS 180.
const std::string kTwoBlocks = "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq";
const std::string kMillion(1000000, 'a');

// RFC 1321, appendix A.5.
TEST(Md5, GivesThePublishedDigestsForEveryLengthAndPiece) {
    ExpectDigests([] { return Md5(); },
                  {{"", "d41d8cd98f00b204e9800998ecf8427e"},
                   {"a", "0cc175b9c0f1b6a831c399e269772661"},
                   {"abc", "900150983cd24fb0d6963f7d28e17f72"},
                   {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
                   {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
                   {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
                    "d174ab98d277d9f5a5611c2c9f419d9f"},
                   {"1234567890123456789012345678901234567890"
                    "1234567890123456789012345678901234567890",
                    "57edf4a22be3c955ac49da2e2107b67a"}},
                  "c7b563628c289aeb7b2cb9547692e404");
    EXPECT_EQ(ToHex(Md5Digest("abc", 3)), "900150983cd24fb0d6963f7d28e17f72");
    Md5 again;
    again.Update("left over", 9);
    again.Init();
    uint8_t digest[Md5::kDigestSize];
    again.Final(digest);
    EXPECT_EQ(ToHex(digest), "d41d8cd98f00b204e9800998ecf8427e");
}

// The same interface as the others.
class Sha1 {
  public:
    static constexpr size_t kDigestSize = kSha1DigestSize;

    void Update(std::span<const uint8_t> data) {
        data_.insert(data_.end(), data.begin(), data.end());
    }
    void Final(uint8_t* digest) {
        const auto value = Sha1Digest(data_);
        std::copy(value.begin(), value.end(), digest);
    }

  private:
    std::vector<uint8_t> data_;
};

TEST(Sha1, GivesThePublishedDigestsForEveryLength) {
    ExpectDigests([] { return Sha1(); },
                  {{"", "da39a3ee5e6b4b0d3255bfef95601890afd80709"},
                   {"abc", "a9993e364706816aba3e25717850c26c9cd0d89d"},
                   {kTwoBlocks, "84983e441c3bd26ebaae4aa1f95129e5e54670f1"},
                   {kMillion, "34aa973cd4c4daa4f61eeb2bdbad27316534016f"}},
                  "87111e328ff546df6b315b6d4e29c97b92451607");
}

TEST(Sha256, GivesThePublishedDigestsForEveryLengthAndPiece) {
    ExpectDigestsOfEach<Sha256>(
        Sha256Portable, AcceleratedHashes().sha256,
        {{"abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
         {kTwoBlocks, "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1"},
         {kMillion, "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"}},
        "c603981eabc8e6e93a10e31ec33d02e02625d3b685e0e0b9298d36e0bac705e5");
}

TEST(Sha512, GivesThePublishedDigestsForEveryLengthAndPiece) {
    ExpectDigestsOfEach<Sha512>(
        Sha512Portable, AcceleratedHashes().sha512,
        {{"abc",
          "ddaf35a193617abacc417349ae20413112e6fa4e89a97ea20a9eeee64b55d39a"
          "2192992a274fc1a836ba3c23a3feebbd454d4423643ce80e2a9ac94fa54ca49f"},
         {"abcdefghbcdefghicdefghijdefghijkefghijklfghijklmghijklmn"
          "hijklmnoijklmnopjklmnopqklmnopqrlmnopqrsmnopqrstnopqrstu",
          "8e959b75dae313da8cf4f72814fc143f8f7779c6eb9f7fa17299aeadb6889018"
          "501d289e4900f7e4331b99dec4b5433ac7d329eeb6dd26545e96e55b874be909"},
         {kMillion,
          "e718483d0ce769644e2e42c7bc15b4638e1f98b13b2044285632a803afa973eb"
          "de0ff244877ea60a4cb0432ce577c31beb009c5c2c49aa2e4eadb217ad8cc09b"}},
        "07278c6d5ba675874c4201406f2866a6f535ef951c750ab73bf2ae4efa7ef2e0"
        "b94ff60132d3843d036b32a2f215b7c2486e547c6246daea64c8962ec072271c");
}

}  // namespace
}  // namespace zot
