// Local files whole, with errors told in a sentence.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace zot::client {

// Reads a regular file of at most `maxSize` bytes. Returns 1, or 0 with the error text.
int ReadWholeFile(const std::string& path, size_t maxSize, std::string& content,
                  std::string& error);

// Puts a file with this content, readable by its owner only, in the place of the one that was
// there: whoever reads it, and whatever breaks off the write, finds the old or the new one whole.
// REQUIRES that nobody else writes the same path meanwhile. Returns 1, or 0 with the error text.
int ReplaceFile(const std::string& path, std::string_view content, std::string& error);

// "cannot read PATH: " and the system's words for the error number.
std::string FileError(std::string_view action, const std::string& path, int errorNumber);

}  // namespace zot::client
