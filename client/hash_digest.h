// The digest that a file is expected to have, as people give it.
#pragma once

#include <string>
#include <string_view>

namespace zot::client {

// The algorithm's number in a request for TEST-FileHash, judged by the length of the digest; empty
// when it is neither a CRC-32 in decimal nor 32 (MD5), 64 (SHA-256) or 128 (SHA-512) hexadecimal
// digits.
std::string HashAlgorithm(std::string_view expected);

// The same digest as agents write it.
std::string NormalDigest(std::string_view expected);

}  // namespace zot::client
