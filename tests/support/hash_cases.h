// Checks that every digest of the MD5 and SHA kind must pass. `make` returns a hash object that has
// started a message.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <span>
#include <string>
#include <vector>

#include "tests/support/hex.h"

namespace zot {

inline std::vector<uint8_t> HashPattern(size_t size) {
    std::vector<uint8_t> bytes(size);
    for (size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<uint8_t>(i * i * 7 + i * 13 + (i >> 8));
    }
    return bytes;
}

// The digest of `data` given in pieces of `piece` bytes, in hexadecimal.
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

template <typename Make>
std::string DigestOf(Make make, const std::string& text) {
    return DigestInPieces(
        make, std::span(reinterpret_cast<const uint8_t*>(text.data()), text.size()), text.size());
}

// `expected` is the digest of the digests of the first 0, 1, ... 300 bytes of the pattern: every
// place where the padding can fall.
template <typename Make>
void ExpectEveryLength(Make make, const std::string& expected) {
    const std::vector<uint8_t> pattern = HashPattern(300);
    std::vector<uint8_t> digests;
    for (size_t size = 0; size <= pattern.size(); ++size) {
        auto digest = FromHex(DigestInPieces(make, std::span(pattern).first(size), 300));
        digests.insert(digests.end(), digest.begin(), digest.end());
    }
    EXPECT_EQ(DigestInPieces(make, digests, digests.size()), expected);
}

template <typename Make>
void ExpectPiecesEqualWhole(Make make) {
    const std::vector<uint8_t> pattern = HashPattern(3000);
    const std::string whole = DigestInPieces(make, pattern, pattern.size());
    constexpr size_t kPieces[] = {1, 3, 63, 64, 65, 127, 128, 129, 200, 1000};
    for (size_t piece : kPieces) {
        EXPECT_EQ(DigestInPieces(make, pattern, piece), whole) << piece;
    }
}

}  // namespace zot
