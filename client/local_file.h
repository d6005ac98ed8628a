// Local files whole, with errors told in a sentence. Operations return true, or false with the
// error text.
#pragma once

#include <string>
#include <string_view>

namespace zot::client {

// Reads a regular file of at most `maxSize` bytes.
bool ReadWholeFile(const std::string& path, size_t maxSize, std::string& content,
                   std::string& error);

// Reads the first line, without its line end, of anything that can be read, also of a pipe.
bool ReadFirstLine(const std::string& path, std::string& line, std::string& error);

// Puts a file with this content, readable by its owner only, in the place of the one that was
// there: whoever reads it, and whatever breaks off the write, finds the old or the new one whole.
// REQUIRES that nobody else writes the same path meanwhile.
bool ReplaceFile(const std::string& path, std::string_view content, std::string& error);

// "cannot read PATH: " and the system's words for the error number.
std::string FileError(std::string_view action, const std::string& path, int errorNumber);

}  // namespace zot::client
