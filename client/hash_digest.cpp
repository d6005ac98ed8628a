#include "client/hash_digest.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "base/ascii.h"
#include "base/numbers.h"

namespace zot::client {

std::string HashAlgorithm(std::string_view expected) {
    constexpr size_t kMaxCrcDigits = 10;
    bool hex = std::all_of(expected.begin(), expected.end(), [](char c) {
        char lower = LowerAscii(c);
        return IsDigit(c) || (lower >= 'a' && lower <= 'f');
    });
    if (hex && expected.size() == 32) return "1";
    if (hex && expected.size() == 64) return "2";
    if (hex && expected.size() == 128) return "3";
    // As the agent writes it: without leading zeros, and of at most 32 bits.
    bool decimal = !expected.empty() && std::all_of(expected.begin(), expected.end(), IsDigit);
    bool padded = expected.size() > 1 && expected[0] == '0';
    bool fits = expected.size() <= kMaxCrcDigits && ToInt64(expected) <= int64_t{UINT32_MAX};
    return decimal && !padded && fits ? "0" : "";
}

std::string NormalDigest(std::string_view expected) {
    std::string digest(expected);
    std::transform(digest.begin(), digest.end(), digest.begin(), LowerAscii);
    return digest;
}

}  // namespace zot::client
