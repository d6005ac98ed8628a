// Computes a checksum or a digest of a file's content.
#pragma once

#include <cstdint>
#include <string_view>

#include "base/vystring.h"

namespace zot {

// Numbered as requests carry them.
enum class HashAlgorithm : int32_t { kCrc32 = 0, kMd5 = 1, kSha256 = 2, kSha512 = 3 };

// Reads the whole file. Returns true with `value` set: a digest in lower-case hexadecimal, or the
// CRC-32 register in decimal, without the final inversion. Returns false with `errorText` set
// ("File is not specified", "Cannot open file", "Read error"; empty for an unknown algorithm).
//
// A file whose size is a multiple of 20,480 bytes, even an empty one, gives "Read error": servers
// are used to a reader that went through the file in such blocks and took an empty block for an
// error.
bool HashFile(std::string_view path, HashAlgorithm algorithm, VyString& value,
              std::string_view& errorText);

}  // namespace zot
