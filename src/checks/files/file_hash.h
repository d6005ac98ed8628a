// Naming the content of a file by a checksum or a digest.
#pragma once

#include <cstdint>
#include <string_view>

#include "base/vystring.h"

namespace zot {

// Numbered as requests carry them.
enum class HashAlgorithm : int32_t { kCrc32 = 0, kMd5 = 1, kSha256 = 2, kSha512 = 3 };

// Reads the whole file. Returns true with `value` set: a digest in lower-case hexadecimal, or the
// CRC-32 register without the final inversion, in decimal. False with
// `errorText` set ("File is not specified", "Cannot open file", "Read error"; empty for an
// algorithm that is none of the above).
//
// A file whose size is a multiple of 20,480 bytes, an empty one too, gives "Read error": servers
// know the outcomes of a reader that went through the file in such blocks and took a block of
// nothing for an error.
bool HashFile(std::string_view path, HashAlgorithm algorithm, VyString& value,
              std::string_view& errorText);

}  // namespace zot
